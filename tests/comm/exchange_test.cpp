// What each exchange puts on the wire, says in the log, and reads from the answer.
#include <gtest/gtest.h>

#include <functional>

#include "tests/comm/comm_fixture.h"

namespace korvane {
namespace {

using tests::CommFixture;
using tests::ScriptedTransport;

std::string linesOf(const PropertyList& pairs) {
  std::string lines;
  for (const Property& pair : pairs)
    lines += pair.first.toUtf8() + "=" + pair.second.toUtf8() + "\n";
  return lines;
}

class StubIds : public HidsInterface {
 public:
  bool present() override { return true; }
  bool reload() override { return true; }
  bool setting(const STRING&, STRING&) override { return false; }
  PropertyList settings() override { return {{"ids.a", "1"}}; }
  PropertyList logRules() override { return {{"Log.x", "y=z"}, {"Log.w", ""}}; }
  bool applyPolicy(const STRING&) override { return false; }
  bool applyConfiguration(const PropertyList&, const PropertyList&) override { return false; }
  bool readResults(PropertyList&) override { return false; }
};

class Exchange : public CommFixture {
 protected:
  Exchange() : transport(script()) {}
  ScriptedTransport& transport;
  HttpsHandler handler;
};

TEST_F(Exchange, LogsResultsAndApplicationDataSendTheirProperties) {
  config().setAppDataRequestID("r-7");
  const PropertyList record{{"v2", "1"}, {"v3", "t"}};
  const std::string text = "t,\"x\"";
  const std::string file = write("bulk.zip", "PK");
  MessageBody body;
  body.addSection("text/plain", "properties", "v2=1\nv3=t\n");
  body.endSection();
  body.finish();

  struct Exchanged {
    std::function<int()> send;
    std::string word;
    std::string sections;
    std::vector<std::string> texts;
  };
  const std::vector<Exchanged> cases{
      {[&] { return handler.testConnection(true); }, "testConnection", "", {"Testing Connection"}},
      {[&] {
         return handler.setUpdateResult(256, PropertyList{{"a", "b"}});
       },
       "result",
       properties("result.type=ferrolyn.vexvt\na=b\n"),
       {"Sending Update Result Message, Type = ferrolyn.vexvt"}},
      {[&] {
         STRING shown(text);
         return handler.setUpdateResult(8, -36, shown, Property("a", "b"));
       },
       "result",
       properties(
           "result.type=policy.ids\nresult.errorcode=-36\nresult.errormessage=t,\"x\"\na=b\n"),
       {"NameValuePair a b", "Type = policy.ids"}},
      {[&] { return handler.log(record); },
       "log",
       properties("v2=1\nv3=t\n"),
       {"Sending Single Log Message"}},
      {[&] {
         return handler.log({record, PropertyList(), record});
       },
       "log",
       properties("v2=1\nv3=t\n") + properties("") + properties("v2=1\nv3=t\n"),
       {"Sending Multiple Log Messages"}},
      {[&] { return handler.log(body, 1); }, "log", properties("v2=1\nv3=t\n"), {}},
      {[&] { return handler.sendFile(file); },
       "bulk-log",
       section("binary/zip", "policy", "PK") + properties("file.name=bulk.zip\n"),
       {}},
      {[&] { return handler.sendApplicationData("data", true, 4); },
       "result",
       properties("result.type=app.data\napplication.requestID=r-7\n"
                  "application.request.complete=false\n") +
           section("binary/zip", "policy", "data"),
       {"Sending Application Data", "Sent Request ID: r-7", "More Data Available",
        "Sent Application Data with return code : 0"}},
      {[&] { return handler.sendApplicationData(nullptr, false, 0); },
       "result",
       properties("result.type=app.data\napplication.requestID=r-7\n"
                  "application.request.complete=true\n"),
       {"No More Data Available", "Sending no ADR data. Only properties."}},
  };
  for (const Exchanged& test : cases) {
    transport.seen.clear();
    EXPECT_EQ(test.send(), 0) << test.word;
    ASSERT_EQ(transport.seen.size(), 1u) << test.word;
    const ScriptedTransport::Seen& seen = transport.seen.front();
    EXPECT_EQ(seen.url, "https://first.test:8443/agent/" + test.word);
    EXPECT_EQ(seen.body, test.sections + "EOF_FLAG\n") << test.word;
    const bool named = test.word != "testConnection";
    ASSERT_EQ(seen.headers.size(), named ? 4u : 3u);
    if (named) {
      EXPECT_EQ(seen.headers[3], (std::pair<std::string, std::string>("Korvane-GUID", "guid-1")));
    }
    EXPECT_EQ(handler.getGUIDUsed(), named ? STRING("guid-1") : STRING());
    for (const std::string& said : test.texts) EXPECT_GE(logged(said), 1) << said;
  }
}

TEST_F(Exchange, RegistrationSendsAllItHas) {
  StubIds ids;
  config().setUniqueId("");
  const std::string about = properties(linesOf(config().getAttributes())) +
                            properties(linesOf(config().getConfiguration()));
  EXPECT_EQ(handler.registerAgent(nullptr, -1), 0);
  EXPECT_EQ(transport.seen.back().url, "https://first.test:8443/agent/register");
  EXPECT_EQ(transport.seen.back().body, about + "EOF_FLAG\n");
  EXPECT_EQ(transport.seen.back().headers.size(), 3u);

  AgentConfig::setHIDSInterface(&ids);
  config().setIDSPlusFileName(write("ids.zip", "IDS"));
  const std::string full = properties(linesOf(config().getAttributes())) +
                           properties(linesOf(config().getConfiguration()));
  EXPECT_EQ(handler.registerAgent("PK", 2), 0);
  EXPECT_EQ(transport.seen.back().body,
            full + properties("ids.a=1\nidslogrules=Log.x=y=z\nidslogrules=Log.w=\n") +
                section("binary/zip", "policy", "PK") + section("binary/zip", "policy", "IDS") +
                "EOF_FLAG\n");
  EXPECT_EQ(logged("Sending Register Message"), 2);
}

TEST_F(Exchange, NothingIsSentWhenItMustNotBe) {
  transport.steps.push_back({.code = 55});
  EXPECT_EQ(handler.sendApplicationData("x", false, 1), 55);
  EXPECT_EQ(logged(",10223,"), 2);  // a failure of this one is reported twice
  transport.seen.clear();
  AgentConfig::setAgentShuttingdown(true);
  EXPECT_EQ(handler.sendApplicationData("x", false, 1), -1);
  EXPECT_EQ(logged("Agent Shutting Down. Stopping data transmission."), 1);
  EXPECT_EQ(handler.sendFile(path("none")), -1);
  EXPECT_EQ(logged(",10221,"), 1);

  config().setUniqueId("");
  EXPECT_EQ(handler.log(PropertyList{{"a", "b"}}), -1);
  EXPECT_EQ(logged(",10221,"), 2);
  EXPECT_EQ(handler.getCurlError(-1), STRING("Internal CURL Error : Guid is blank."));
  EXPECT_TRUE(transport.seen.empty());

  transport.refusesToOpen = true;
  transport.close();
  EXPECT_EQ(handler.testConnection(true), -1);
  EXPECT_GE(logged(",10224,"), 1);
  EXPECT_TRUE(transport.seen.empty());
}

TEST_F(Exchange, ErrorTextFitsOneField) {
  STRING text("before");
  EXPECT_EQ(handler.getKorvaneError(text), 0);
  EXPECT_EQ(text, STRING("before"));
  transport.steps.push_back({.headers = {"Korvane-Error: 301\r\n"},
                             .body = section("text/plain", "stacktrace", "a \"b\", c\nd")});
  EXPECT_EQ(handler.getUpdate(2, false), 0);
  EXPECT_EQ(handler.getKorvaneError(text), 301);
  EXPECT_EQ(text, STRING("a b  c d"));
  transport.steps.push_back({.headers = {"Korvane-Error: 301\r\n"}});
  EXPECT_EQ(handler.getUpdate(2, false), 0);
  EXPECT_EQ(handler.getKorvaneError(text), 301);
  EXPECT_EQ(text, STRING("Server did not return any error string."));
}

TEST_F(Exchange, PolicyAndSoftware) {
  int status = 9;
  int size = 9;
  PropertyList got;
  const auto ask = [&](int kinds, const ScriptedTransport::Step& step, bool ids) {
    transport.steps.push_back(step);
    handler.getUpdate(kinds, false);
    const std::unique_ptr<char[]> bytes(handler.getPolicy(status, size, got, ids));
    return bytes ? std::string(bytes.get(), static_cast<size_t>(size)) : std::to_string(status);
  };
  const std::string both = properties("update.policy=true\nupdate.policy.ids=true\nx=1\n") +
                           section("binary/zip", "policy", "one") +
                           section("binary/zip", "zipdata", "second");
  EXPECT_EQ(ask(2, {.body = both}, false), "one");
  EXPECT_EQ(propertyValue(got, "x"), STRING("1"));
  EXPECT_EQ(ask(10, {.body = both}, true), "second");
  EXPECT_EQ(ask(8, {.body = both}, true), "one");
  EXPECT_EQ(ask(8, {.body = both}, false), "-1");
  EXPECT_EQ(ask(2, {.body = properties("update.policy=TRUE\n")}, false), "0");
  EXPECT_EQ(logged("No Policy Update"), 1);
  EXPECT_EQ(ask(2, {.body = properties("update.policy=true\n")}, false), "-1");
  EXPECT_EQ(ask(2, {.headers = {"Korvane-Error: 1"}, .body = both}, false), "-2");
  EXPECT_EQ(ask(2, {.status = 404, .body = both}, false), "-1");
  handler.setUpdateResult(2, PropertyList());
  EXPECT_EQ(handler.getPolicy(status, size, got, false), nullptr);
  EXPECT_EQ(status, -1);

  transport.steps.push_back(
      {.body = properties("update.software=true\n") + section("binary/zip", "zipdata", "")});
  handler.getUpdate(4, false);
  const std::unique_ptr<char[]> software(handler.getSoftware(status, size, got));
  EXPECT_TRUE(software);
  EXPECT_EQ(status + size, 1);
  handler.getUpdate(4, false);
  EXPECT_EQ(handler.getSoftware(status, size, got), nullptr);
  EXPECT_EQ(logged("No Software Update"), 1);
}

TEST_F(Exchange, GroupsOfAConfigurationAnswer) {
  const std::string answer = properties(
      "update.configuration=true\nmod.time=m\nrid.applied=r\npolling.interval=9\nids.a=1\n"
      "Log.x=2\nsend.application.request=true\nupdate.qel=true\n");
  PropertyList out{{"old", ""}};
  PropertyList other;
  EXPECT_EQ(handler.GetGeneralProperties(out, other), -1);
  for (int kinds : {1, 16}) {
    transport.steps.push_back({.body = answer});
    handler.getUpdate(kinds, false);
    EXPECT_EQ(handler.GetGeneralProperties(out, other), 0);
    EXPECT_EQ(linesOf(out), "polling.interval=9\n");
    EXPECT_EQ(linesOf(other), "mod.time=m\nrid.applied=r\n");
  }
  EXPECT_GE(logged("Mod Time mod.time m"), 1);
  EXPECT_GE(logged("Applied RID rid.applied r"), 1);
  EXPECT_EQ(handler.GetIDSProperties(out), 0);
  EXPECT_EQ(linesOf(out), "ids.a=1\n");
  EXPECT_EQ(handler.GetLogRules(out), 0);
  EXPECT_EQ(linesOf(out), "Log.x=2\n");
  EXPECT_EQ(handler.GetPollingProperties(out), 0);
  EXPECT_EQ(linesOf(out),
            "update.configuration=true\nsend.application.request=true\nupdate.qel=true\n");

  transport.steps.push_back({.body = properties("update.configuration=true\n")});
  handler.getUpdate(1, false);
  EXPECT_EQ(handler.GetGeneralProperties(out, other), 0);
  EXPECT_EQ(logged(",10203,") + logged(",10204,"), 2);

  handler.getUpdate(1, false);
  EXPECT_EQ(handler.GetGeneralProperties(out, other), 0);
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(logged("No Configuration change received"), 1);
  handler.getUpdate(2, false);
  EXPECT_EQ(handler.GetGeneralProperties(out, other), -1);
  // "Come back later" still hands out its notices.
  transport.steps.push_back({.headers = {"Korvane-Error: 200"}, .body = answer});
  handler.sendAgentStatusMessage(false);
  EXPECT_EQ(handler.GetPollingProperties(out), -2);
  EXPECT_EQ(out.size(), 3u);
}

TEST_F(Exchange, ARequestForApplicationDataIsTakenOnceAndByThisRunOfTheAgent) {
  const std::string offer =
      properties("send.application.request=true\nsend.application.requestID=r-1\n");
  STRING identifier;
  const auto takenAfter = [&](int exchange) {
    EXPECT_EQ(exchange, 0);
    return currentConnection().collectApplicationRequest(identifier);
  };
  for (int i = 0; i < 4; ++i) transport.steps.push_back({.body = offer});
  EXPECT_FALSE(takenAfter(handler.log(PropertyList())));
  EXPECT_TRUE(takenAfter(handler.sendApplicationData(nullptr, false, 0)));
  EXPECT_EQ(identifier, STRING("r-1"));
  EXPECT_FALSE(currentConnection().collectApplicationRequest(identifier));
  EXPECT_TRUE(takenAfter(handler.sendPolicyStateMessage()));
}

TEST_F(Exchange, ContentPartsByKind) {
  std::string* bytes = nullptr;
  transport.steps.push_back(
      {.body =
           properties("update.ferrolyn.vexvt=true\nupdate.qel=true\nupdate.ferrolyn.settings=true\n"
                      "update.ferrolyn.revocation=false\n") +
           section("binary/zip", "zipdata", "qel") + section("binary/zip", "zipdata", "") +
           section("binary/zip", "zipdata", "vt")});
  handler.getCompUpdate();
  EXPECT_EQ(handler.getBinaryData("update.qel", bytes), 0);
  EXPECT_EQ(*bytes, "qel");
  EXPECT_EQ(handler.getBinaryData("update.ferrolyn.revocation", bytes), -1);
  EXPECT_EQ(bytes, nullptr);
  EXPECT_EQ(handler.getBinaryData("update.ferrolyn.settings", bytes), -1);
  EXPECT_EQ(*bytes, "Empty");
  EXPECT_EQ(handler.getBinaryData("update.ferrolyn.vexvt", bytes), 0);
  EXPECT_EQ(*bytes, "vt");
  EXPECT_EQ(handler.getBinaryData("nonsense", bytes), -1);
  EXPECT_EQ(logged("Freshline binary data received."), 2);
  EXPECT_EQ(logged("Freshline content from sever is empty. Empty"), 1);
  EXPECT_EQ(logged("No Freshline data from Server"), 2);
  transport.steps.push_back(
      {.body = section("binary/zip", "zipdata", "1") + section("binary/zip", "policy", "2")});
  handler.getCompUpdate();
  EXPECT_EQ(handler.getBinaryData("update.ferrolyn.revocation", bytes), 0) << "in their order";
  EXPECT_EQ(*bytes, "2");
  EXPECT_EQ(handler.getBinaryData("update.ferrolyn.settings", bytes), -1);
  transport.steps.push_back({.headers = {"Korvane-Error: 200"}});
  handler.getCompUpdate();
  EXPECT_EQ(handler.getBinaryData("update.qel", bytes), -2);
}

}  // namespace
}  // namespace korvane
