#include <sys/socket.h>

#include <future>

#include "archive/zip_writer.h"
#include "bulk/bulk_manifest.h"
#include "tests/server/server_fixture.h"

namespace korvane::server {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using testing::SizeIs;

TEST_F(ServerTest, RegistrationKeepsWhatTheAgentSays) {
  start();
  EXPECT_EQ(post("testConnection", "EOF_FLAG\n").body, "EOF_FLAG\n");
  std::string body =
      messageOf({{{"agent.name", "one"}}, {{"polling.interval", "5"}}, {{"ids.log", "x"}}});
  body.resize(body.size() - std::string("EOF_FLAG\n").size());
  writeSection(body, "binary/zip", "policy", std::string("PK\0\1", 4));
  writeEnd(body);
  const std::string guid = post("register", body).property("agent.id");
  ASSERT_THAT(guid, SizeIs(36));
  EXPECT_NE(registerAgent(), guid);
  const std::string again =
      messageOf({{{"agent.id", guid}, {"agent.name", "renamed"}}, {{"polling.interval", "6"}}});
  EXPECT_EQ(post("register", again).property("agent.id"), guid);

  const Json agents = get("/agents");
  ASSERT_THAT(agents, SizeIs(2));
  EXPECT_EQ(agents[0]["guid"], guid);
  EXPECT_EQ(agents[0]["registrations"], 2);
  EXPECT_EQ(agents[0]["attributes"]["agent.name"], "renamed");
  EXPECT_EQ(agents[0]["configuration"]["polling.interval"], "6");
  EXPECT_EQ(agents[0]["ids"]["ids.log"], "x");
  const Json binaries = get("/binaries?type=registration");
  ASSERT_THAT(binaries, SizeIs(1));
  const auto bytes = httplib::Client("127.0.0.1", _server->adminPort())
                         .Get("/binaries/" + std::to_string(binaries[0]["id"].get<int>()));
  EXPECT_EQ(bytes->body, std::string("PK\0\1", 4));

  remove("/agents/" + guid);
  EXPECT_EQ(post("log", eventsFrom(1, 1), guid).korvaneError, 400);
  EXPECT_THAT(get("/agents"), SizeIs(1));
}

TEST_F(ServerTest, EventsAreAccountedFor) {
  start();
  const std::string guid = registerAgent();
  post("log", eventsFrom(1, 100), guid);
  post("log", eventsFrom(91, 110), guid);
  post("log",
       messageOf(
           {{{"v2", "120"}, {"v3", "t"}, {"v1", "TNET"}, {"v4", "größer, \"so\""}, {"a5", "5"}}}),
       guid);
  post("log", messageOf({{{"v1", "TNET"}}}), guid);
  const Json events = get("/events?from=1&to=130&exact&agent=" + guid);
  EXPECT_EQ(events["received"], 122);
  EXPECT_EQ(events["batches"], 4);
  EXPECT_EQ(events["largest_batch"], 100);
  EXPECT_EQ(events["covered"], 125);
  EXPECT_EQ(events["distinct"], 115);
  EXPECT_EQ(events["duplicated"], 10);
  EXPECT_EQ(events["missing"], Json::parse("[[111,115],[121,130]]"));
  EXPECT_EQ(events["exact"], (Json{{"stored", 122}, {"distinct", 112}}));
  EXPECT_EQ(get("/records?type=TNET")[0]["fields"]["v4"], "größer, \"so\"");
  EXPECT_EQ(get("/events?agent=other")["received"], 0);

  _server.reset();
  _client.reset();
  start();
  EXPECT_EQ(get("/events")["received"], 122) << "after a restart on the same database";
  command("/reset", {{"keep_agents", true}});
  EXPECT_EQ(get("/events")["received"], 0);
  EXPECT_EQ(post("log", eventsFrom(1, 1), guid).korvaneError, 0);
}

TEST_F(ServerTest, ResultsUploadsAndApplicationData) {
  start();
  const std::string guid = registerAgent();
  post("result",
       messageOf(
           {{{"result.type", "qel"}, {"result.errorcode", "36"}, {"result.errormessage", "bad"}}}),
       guid);
  const Json results = get("/results?type=qel");
  ASSERT_THAT(results, SizeIs(1));
  EXPECT_EQ(results[0]["code"], 36);
  EXPECT_EQ(results[0]["properties"]["result.errormessage"], "bad");

  const auto withBinary = [](const std::string& bytes, const WireProperties& properties,
                             bool binaryFirst) {
    std::string body;
    if (binaryFirst) writeSection(body, "binary/zip", "policy", bytes);
    writeProperties(body, properties);
    if (!binaryFirst) writeSection(body, "binary/zip", "policy", bytes);
    writeEnd(body);
    return body;
  };
  const auto sendBulk = [&](const std::string& name, const std::string& bytes) {
    post("bulk-log", withBinary(bytes, {{"file.name", name}}, true), guid);
  };
  sendBulk("log.zip", "packed log");
  EXPECT_EQ(get("/binaries?type=bulk-log")[0]["file_name"], "log.zip");
  EXPECT_NE(get("/bulk-files")[0]["fault"], "");
  // Four parts of one log: in order, sent again, overlapping, behind a gap.
  const std::pair<int, int> ranges[] = {{0, 10}, {0, 10}, {8, 14}, {20, 25}};
  for (int i : {0, 1, 2, 3}) {
    const std::string name =
        "bulk-20260101000000000-aaaaaaaaaaa" + std::to_string(i - (i == 1)) + ".zip";
    const auto [from, to] = ranges[i];
    const bulk::Manifest manifest{
        name,
        {{"ids/01-a.csv", bulk::Kind::ids, "aaaaaaaaaaaa", static_cast<uint64_t>(from),
          static_cast<uint64_t>(to), 30, 0, "", "/a.csv"}}};
    archive::ZipWriter zip(name);
    archive::Refusal refusal;
    ASSERT_TRUE(
        zip.add("ids/01-a.csv", std::string(static_cast<size_t>(to - from), 'x'), refusal) &&
        zip.add(bulk::kManifestName, bulk::manifestText(manifest), refusal));
    sendBulk(name, zip.finish());
  }
  const Json logs = get("/bulk-logs?agent=" + guid);
  EXPECT_EQ(logs["files"], 4);
  EXPECT_EQ(logs["repeated"], 1);
  EXPECT_EQ(logs["faults"], 1);
  EXPECT_EQ(logs["log_bytes"], 19);
  EXPECT_EQ(logs["twice"], 2);
  EXPECT_EQ(logs["logs"][0]["missing"], Json::parse("[[14,20],[25,30]]"));
  EXPECT_EQ(logs["logs"][0]["complete"], false);
  post("result",
       withBinary("12345",
                  {{"result.type", "app.data"},
                   {"application.requestID", "r1"},
                   {"application.request.complete", "true"}},
                  false),
       guid);
  const Json data = get("/application-data?type=r1");
  ASSERT_THAT(data, SizeIs(1));
  EXPECT_EQ(data[0]["size"], 5);
  EXPECT_EQ(data[0]["complete"], "true");
}

class AssignmentTest : public ServerTest {
 protected:
  void SetUp() override {
    start();
    _guid = registerAgent();
  }
  WireProperties status(const std::string& guid) {
    return post("result", statusMessage(), guid).properties();
  }
  Answer update(const std::vector<std::string>& keys) {
    WireProperties asked;
    for (const std::string& key : keys) asked.emplace_back(key, "true");
    return post("update", messageOf({asked}), _guid);
  }

  std::string _guid;
};

TEST_F(AssignmentTest, OfferedUntilFetchedByEachAgent) {
  const std::string other = registerAgent();
  serveFile("p1.zip", "old");
  serveFile("p2.zip", "new policy");
  EXPECT_THAT(status(_guid), IsEmpty());
  command("/assign",
          {{"kind", "policy"}, {"file", "p1.zip"}, {"properties", {{"policy.name", "P1"}}}});
  command(
      "/assign",
      {{"kind", 2}, {"file", "p2.zip"}, {"properties", {{"policy.name", "P2"}}}, {"agent", _guid}});
  EXPECT_THAT(status(_guid), ElementsAre(Pair("update.policy", "true")));
  EXPECT_THAT(status(_guid), ElementsAre(Pair("update.policy", "true"))) << "not yet fetched";
  const Answer answer = update({"update.configuration", "update.policy"});
  EXPECT_THAT(answer.properties(),
              ElementsAre(Pair("update.configuration", "false"), Pair("update.policy", "true"),
                          Pair("policy.name", "P2")));
  const WireMessage message = readMessage(answer.body);
  ASSERT_THAT(message.sections, SizeIs(2));
  EXPECT_EQ(message.sections[1].name, "policy");
  EXPECT_EQ(message.sections[1].payload, "new policy");
  EXPECT_THAT(status(_guid), IsEmpty());
  EXPECT_THAT(status(other), ElementsAre(Pair("update.policy", "true")))
      << "the older one is for all";
  EXPECT_THAT(get("/assignments")[1]["deliveries"], SizeIs(1));
  remove("/assignments");
  EXPECT_THAT(status(other), IsEmpty());
}

TEST_F(AssignmentTest, UntilResultOutlivesALostAnswer) {
  serveFile("qel.zip", "content");
  command("/assign", {{"kind", "qel"}, {"file", "qel.zip"}, {"until", "result"}});
  EXPECT_EQ(update({"update.qel", "update.ferrolyn.revocation", "update.ferrolyn.settings",
                    "update.ferrolyn.vexvt"})
                .property("update.qel"),
            "true");
  EXPECT_THAT(status(_guid), ElementsAre(Pair("update.qel", "true")));
  post(
      "result",
      messageOf({{{"result.type", "qel"}, {"result.errorcode", "0"}, {"result.errormessage", ""}}}),
      _guid);
  EXPECT_THAT(status(_guid), IsEmpty());
  EXPECT_EQ(get("/assignments")[0]["deliveries"][0]["code"], 0);
}

TEST_F(AssignmentTest, AnAnswerThatWasCutIsNotFetched) {
  command("/assign", {{"kind", "config"}, {"properties", {{"polling.interval", "7"}}}});
  command("/misbehave",
          {{"word", "update"}, {"kind", "dropInAnswer"}, {"bytes", 10}, {"count", 1}});
  EXPECT_FALSE(update({"update.configuration"}).arrived);
  EXPECT_THAT(status(_guid), ElementsAre(Pair("update.configuration", "true")));
  EXPECT_EQ(update({"update.configuration"}).property("polling.interval"), "7");
}

TEST_F(AssignmentTest, ApplicationDataIsAskedForUntilTheLastOfItHasCome) {
  command("/assign",
          {{"kind", "application"}, {"properties", {{"send.application.requestID", "r9"}}}});
  const auto asks = ElementsAre(Pair("send.application.request", "true"),
                                Pair("send.application.requestID", "r9"));
  const auto sendData = [this](const char* request, const char* complete) {
    post("result",
         messageOf({{{"result.type", "app.data"},
                     {"application.requestID", request},
                     {"application.request.complete", complete}}}),
         _guid);
  };
  EXPECT_THAT(status(_guid), asks);
  EXPECT_THAT(status(_guid), asks) << "an agent does not read the answer to a mere report";
  sendData("another", "true");
  sendData("r9", "false");
  EXPECT_THAT(status(_guid), asks);
  sendData("r9", "true");
  EXPECT_THAT(status(_guid), IsEmpty());
}

TEST_F(AssignmentTest, WrongCommandsAreRefused) {
  const std::pair<const char*, Json> cases[] = {
      {"/assign", {{"kind", "policy"}, {"file", "missing.zip"}}},
      {"/assign", {{"kind", "policy"}, {"file", "../server.db"}}},
      {"/assign", {{"kind", "nothing"}}},
      {"/assign", {{"kind", "config"}, {"properties", {{"a", "b\nc"}}}}},
      {"/misbehave", {{"kind", "nothing"}}},
      {"/misbehave", {{"kind", "certificate"}, {"cert", "missing.pem"}, {"key", "missing.key"}}},
      {"/notify", {{"kinds", {"qel", 256}}, {"port", 1}}},
      {"/notify", {{"byte", 1}, {"port", 1}, {"address", "nowhere"}}},
  };
  for (const auto& [path, body] : cases) {
    const auto result = tryCommand(path, body);
    EXPECT_EQ(result->status, 400) << path << body;
    EXPECT_TRUE(Json::parse(result->body).contains("error")) << result->body;
  }
  EXPECT_THAT(get("/assignments"), IsEmpty());
  EXPECT_THAT(get("/misbehave"), IsEmpty());
}

TEST_F(ServerTest, AnAssignmentNotifiesItsAgentWhereItRegistered) {
  start();
  std::promise<std::string> received;
  Listener agent("127.0.0.1", 0, [&](Connection& connection) {
    char bytes[4];
    const ssize_t size = connection.read(bytes, sizeof bytes);
    received.set_value(std::string(bytes, static_cast<size_t>(std::max<ssize_t>(size, 0))));
  });
  agent.start();
  const std::string body =
      messageOf({{{"agent.ipaddress", "127.0.0.1"}}, {{"tcp.port", std::to_string(agent.port())}}});
  const std::string guid = post("register", body).property("agent.id");
  serveFile("b.zip", "software");
  serveFile("a.zip", "");
  EXPECT_EQ(get("/files"), Json::parse(R"([{"name":"a.zip","size":0},{"name":"b.zip","size":8}])"));
  const Json answer = command(
      "/assign", {{"kind", "software"}, {"file", "b.zip"}, {"agent", guid}, {"notify", true}});
  EXPECT_EQ(answer["byte"], 4);
  EXPECT_EQ(received.get_future().get(), "\x04");
  EXPECT_EQ(tryCommand("/notify", {{"agent", "nobody"}, {"byte", 1}})->status, 400);
  EXPECT_EQ(tryCommand("/notify", {{"byte", 1}})->status, 400);
}

TEST_F(ServerTest, TellsForEachLogWhatIsMissingAndWhy) {
  start();
  const std::string guid = registerAgent();
  post("log", eventsFrom(1, 90), guid);
  const auto tell = [&](const char* account, WireProperties entries) {
    WireProperties ledger = {{"ledger.accounts", "1"}, {"ledger.account.1", account}};
    ledger.emplace_back("ledger.entries", std::to_string(entries.size()));
    ledger.insert(ledger.end(), entries.begin(), entries.end());
    EXPECT_EQ(post("result", statusMessage(ledger), guid).korvaneError, 0);
    // One that says nothing of it changes nothing.
    EXPECT_EQ(post("result", statusMessage(), guid).korvaneError, 0);
    const Json all = get("/accounting?agent=" + guid);
    return all.at(0);
  };
  Json told = tell("hidslog1rt 2026-11-22T13:00:00.000Z 92 90 2 0 0", {});
  EXPECT_EQ(told["complete"], true);
  EXPECT_EQ(told["received"], 90);
  EXPECT_EQ(tell("hidslog1rt t 92 91 1 0 0", {})["logs"][0]["short"], 1);
  EXPECT_EQ(tell("hidslog1rt t 92 90 1 0 0", {})["logs"][0]["closed"], false);
  told = tell("hidslog1rt t 92 90 0 2 0",
              {{"ledger.entry.1", "hidslog1rt line-rejected counted 2 1 47 58 t1 t2 /a b.csv"},
               {"ledger.entry.2", "- disk-limit uncounted 1 1 0 9 t1 t2 -"}});
  EXPECT_EQ(told["complete"], false);
  EXPECT_EQ(told["logs"][0]["closed"], true);
  EXPECT_EQ(told["logs"][0]["missing"],
            Json::parse(R"([{"log":"hidslog1rt","cause":"line-rejected","counted":true,"count":2,
                "parts":1,"from":47,"to":58,"first":"t1","last":"t2","path":"/a b.csv"}])"));
  EXPECT_EQ(told["files"][0]["cause"], "disk-limit");
  EXPECT_EQ(get("/agents")[0]["status"].size(), 10u);
}

TEST_F(ServerTest, ShowsAnAgentsPolicyStateAndItsChanges) {
  start();
  const std::string guid = registerAgent();
  registerAgent();
  const auto report = [&](const char* type, const char* code, const char* policy) {
    WireProperties result = {
        {"result.type", type}, {"result.errorcode", code}, {"result.errormessage", "text"}};
    if (std::string_view(type) == "policy")
      for (const char* name : {"rid.applied", "rid.group", "policy.name", "policy.path"})
        result.emplace_back(name, policy);
    EXPECT_THAT(post("result", messageOf({result}), guid).properties(), IsEmpty());
  };
  report("policy", "0", "first");
  report("policy", "0", "first");
  report("qel", "36", "");
  report("policy", "66", "first");
  report("policy", "0", "second");
  EXPECT_THAT(get("/policy-state"), SizeIs(2));
  const Json states = get("/policy-state?agent=" + guid);
  ASSERT_THAT(states, SizeIs(1));
  EXPECT_EQ(states[0]["policy.name"], "second");
  EXPECT_EQ(states[0]["code"], 0);
  ASSERT_THAT(states[0]["changes"], SizeIs(3));
  EXPECT_EQ(states[0]["changes"][1]["code"], 66);
  EXPECT_EQ(states[0]["updates"]["qel"]["code"], 36);
  EXPECT_EQ(states[0]["updates"]["policy"]["code"], 0);
}

}  // namespace
}  // namespace korvane::server
