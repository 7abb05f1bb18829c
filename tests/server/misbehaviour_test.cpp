#include "tests/server/server_fixture.h"

namespace korvane::server {
namespace {

using testing::HasSubstr;

class MisbehaviourTest : public ServerTest {
 protected:
  void SetUp() override {
    start();
    _client->keepNothing();
    _guid = registerAgent();
  }
  Json lastLog() { return get("/requests?word=log").back(); }

  std::string _guid;
};

// What a client sees of a fault on "log", and what the server notes about it.
TEST_F(MisbehaviourTest, EachKindStrikesOnceAndIsNoted) {
  const struct {
    Json fault;
    bool arrived;
    int status;
    int error;
    const char* body;  // a part of it
    const char* answered;
    bool stored;
  } cases[] = {
      {{{"kind", "error"}, {"code", 302}, {"text", "refused"}},
       true,
       200,
       302,
       "refused\nEOF_FLAG\n",
       "full",
       false},
      {{{"kind", "error"}, {"code", 600}, {"store", true}},
       true,
       200,
       600,
       "EOF_FLAG\n",
       "full",
       true},
      {{{"kind", "error"}, {"code", 12}, {"text", "hi"}, {"wide", true}},
       true,
       200,
       12,
       "=4\n\nh",
       "full",
       false},
      {{{"kind", "http"}, {"code", 503}}, true, 503, 0, "", "full", false},
      {{{"kind", "delay"}, {"delay_ms", 1}}, true, 200, 0, "EOF_FLAG\n", "full", true},
      {{{"kind", "slow"}, {"bytes", 4096}}, true, 200, 0, "EOF_FLAG\n", "full", true},
      {{{"kind", "dropBeforeRead"}}, false, 0, 0, "", "none", false},
      {{{"kind", "dropAfterRead"}}, false, 0, 0, "", "none", true},
      {{{"kind", "dropAfterRead"}, {"store", false}}, false, 0, 0, "", "none", false},
      {{{"kind", "dropInAnswer"}, {"bytes", 3}}, false, 0, 0, "", "part", true},
      {{{"kind", "cut"}, {"bytes", 4}}, true, 200, 0, "EOF_", "part", true},
      {{{"kind", "dataLength"}, {"text", "-1"}}, true, 200, 0, "Data-Length=-1\n", "none", true},
      {{{"kind", "garbageBody"}}, true, 200, 0, "no message", "none", true},
      {{{"kind", "garbage"}}, false, 0, 0, "", "none", true},
      {{{"kind", "endlessHeaders"}, {"bytes", 100'000}}, true, 200, 0, "", "none", true},
      {{{"kind", "oversized"}, {"bytes", 100'000}},
       true,
       200,
       0,
       "Data-Length=100000\n\n# a comment",
       "none",
       true},
      {{{"kind", "raw"}, {"text", "HTTP/1.1 201 Made\r\ncontent-length: 1\r\n\r\nx"}},
       true,
       201,
       0,
       "x",
       "none",
       true},
  };
  int64_t sequence = 0;
  for (auto tried : cases) {
    tried.fault["word"] = "log";
    tried.fault["count"] = 1;
    ++sequence;
    command("/misbehave", tried.fault);
    const Answer answer = post("log", eventsFrom(sequence, sequence), _guid);
    EXPECT_EQ(answer.arrived, tried.arrived) << tried.fault;
    EXPECT_EQ(answer.status, tried.status) << tried.fault;
    EXPECT_EQ(answer.korvaneError, tried.error) << tried.fault;
    EXPECT_THAT(answer.body, HasSubstr(tried.body)) << tried.fault;
    EXPECT_EQ(post("testConnection", "EOF_FLAG\n").body, "EOF_FLAG\n") << "after " << tried.fault;
    const Json noted = lastLog();
    EXPECT_EQ(noted["misbehaviour"], tried.fault["kind"]) << noted;
    EXPECT_EQ(noted["answered"], tried.answered) << noted;
    EXPECT_EQ(noted["stored"], tried.stored ? 1 : 0) << noted;
    const bool read = tried.fault["kind"] != "dropBeforeRead";
    const Json spans = read ? Json::array({{sequence, sequence}}) : Json::array();
    EXPECT_EQ(noted["spans"], spans) << noted;
  }
  EXPECT_EQ(get("/events?from=1&to=" + std::to_string(sequence))["missing"],
            Json::parse("[[1,1],[3,4],[7,7],[9,9]]"));
}

TEST_F(MisbehaviourTest, RulesAreCountedSkippedFilteredAndRemoved) {
  const std::string other = registerAgent();
  command("/misbehave",
          {{"kind", "error"}, {"code", 300}, {"agent", _guid}, {"skip", 1}, {"count", 2}});
  const auto errorOf = [this](const std::string& guid) {
    return post("log", eventsFrom(1, 1), guid).korvaneError;
  };
  EXPECT_EQ(errorOf(other), 0);
  const int seen[] = {errorOf(_guid), errorOf(_guid), errorOf(_guid), errorOf(_guid)};
  EXPECT_THAT(seen, testing::ElementsAre(0, 300, 300, 0));
  EXPECT_EQ(get("/misbehave")[0]["hits"], 2);
  const Json forEver = command("/misbehave", {{"word", "log"}, {"kind", "error"}, {"code", 301}});
  EXPECT_EQ(errorOf(other), 301);
  remove("/misbehave/" + std::to_string(forEver["id"].get<int>()));
  EXPECT_EQ(errorOf(other), 0);
  command("/misbehave", {{"kind", "error"}, {"code", 1}, {"listener", "127.0.0.2"}});
  EXPECT_EQ(errorOf(other), 0);
  command("/misbehave", {{"word", "register"}, {"kind", "noGuid"}});
  EXPECT_EQ(registerAgent(), "");
}

TEST_F(MisbehaviourTest, ConnectionsAreDroppedOrShownAnotherCertificate) {
  const auto reaches = [this](int port) {
    AgentClient by = client(port);
    return post(by, "testConnection", "EOF_FLAG\n", "").arrived;
  };
  EXPECT_TRUE(reaches(_server->port()));
  command("/misbehave", {{"kind", "drop"}, {"count", 1}});
  EXPECT_FALSE(reaches(_server->port()));
  for (const char* name : {"expired", "wrong-ca", "self-signed"}) {
    const Json pair = {{"cert", certificateFile(std::string(name) + ".pem")},
                       {"key", certificateFile(std::string(name) + ".key")}};
    Json fault = pair;
    fault.update({{"kind", "certificate"}, {"count", 1}});
    command("/misbehave", fault);
    EXPECT_FALSE(reaches(_server->port())) << name;
    EXPECT_TRUE(reaches(_server->port())) << "only once: " << name;
    EXPECT_FALSE(reaches(command("/listeners", pair)["port"])) << name;
  }
  EXPECT_TRUE(reaches(command(
      "/listeners", {{"cert", _options.certificateFile}, {"key", _options.keyFile}})["port"]));
}

}  // namespace
}  // namespace korvane::server
