// The cloud command channel: the examples of its page, who may call, its turns with the
// utility thread, its stop.
#include "cloud/comm_thread.h"

#include <gmock/gmock.h>

#include "cloud/application_policies.h"
#include "cloud/cloud_agent_comm.h"
#include "cloud/cloud_errors.h"
#include "cloud/connector_presence.h"
#include "driver/driver_config.h"
#include "platform/error_codes.h"
#include "rpc/fifo.h"
#include "tests/channel/page_examples.h"
#include "tests/cloud/cloud_world.h"
#include "update/policy/policy_news.h"
#include "update/policy/policy_turn.h"
#include "update/util_thread.h"
#include "util/base64.h"

namespace korvane {
namespace {

using testing::HasSubstr;
using tests::CloudWorld;
using tests::SimulatedMachine;

// A policy in base64, as the page has them: the base policy, and one for an application.
struct Sample {
  std::string base, web;
};

const Sample& sample() {
  static const Sample found = [] {
    Sample made;
    for (const tests::Example& each : tests::examplesOf(KORVANE_CLOUD_PAGE)) {
      JsonTree request;
      if (!parseJson(each.request, request)) continue;
      const std::string bytes = request.get("params.bytes", "");
      if (bytes.size() < 100) continue;
      (request.get("name", "") == "policy" ? made.base : made.web) = bytes;
    }
    return made;
  }();
  return found;
}

std::string basePolicy(const std::string& bytes) {
  return R"({"name":"Base","path":"/base","bytes":")" + bytes + "\"}";
}
std::string application(const std::string& name, const std::string& bytes) {
  return R"({"name":")" + name + R"(","bytes":")" + bytes + "\"}";
}

TEST(CloudPage, EveryExampleIsWhatTheChannelAnswers) {
  CloudWorld world;
  Fifo client(world.machine.fake.pipes, world.machine.sim.clock(), kCloudPipe);
  const std::set<std::string> methods =
      tests::runExamples(KORVANE_CLOUD_PAGE, client, CloudWorld::kLongMs);
  EXPECT_THAT(methods, testing::ElementsAre("applicationPolicy.list", "applicationPolicy.remove",
                                            "applicationPolicy.set", "configuration", "getState",
                                            "policy", "policyBuffer", "retranslate"));
  for (const char* exchange : {"register", "testConnection", "result"})
    EXPECT_EQ(world.machine.server.count(exchange), 0U);
}

TEST(CloudCommands, AreForAdministratorsAndSayWhatIsWrong) {
  CloudWorld world;
  ASSERT_EQ(world.codeOf("none", ""), kRpcMethodNotFound);
  // The system lets nobody else in; should it do so even so, the methods refuse.
  world.machine.fake.pipes.setClientsAreAdministrators(false);
  for (const char* method :
       {"policyBuffer", "policy", "configuration", "applicationPolicy.set",
        "applicationPolicy.remove", "applicationPolicy.list", "getState", "retranslate"})
    EXPECT_EQ(world.codeOf(method, R"({"value":"true"})"), kRpcNotAdministrator) << method;
  EXPECT_FALSE(contextOfRun().shared.connector.askedLately());
  world.connector.close();
  std::unique_ptr<platform::Pipe> none;
  EXPECT_EQ(world.machine.fake.pipes.open(kCloudPipe, none), platform::kErrorAccessDenied);
  world.machine.fake.pipes.setClientsAreAdministrators(true);

  ASSERT_EQ(world.codeOf("policy", basePolicy(sample().base)), 0);
  const std::string inForce = world.driverPolicy;
  const std::string ini = world.machine.ini();
  const char* const set = "applicationPolicy.set";
  const struct {
    const char* method;
    std::string params;
    const char* detail;
    int code = kRpcInvalidParams;
  } cases[] = {
      {"policy", R"({"name":"","path":"/b","bytes":"AAAA"})", "name: 0 bytes"},
      {"policy", R"({"name":"B","path":")" + std::string(1025, 'p') + R"(","bytes":"AAAA"})",
       "path: 1025 bytes"},
      {"policy", R"({"name":"B","path":{"a":"b"},"bytes":"AAAA"})", "path: is not a single value"},
      {"policy", basePolicy(std::string(8000008, 'A')), "bytes: 6000006 bytes"},
      {"policy", basePolicy("AB=="), "bytes: is not valid base64"},
      {set, application("web", sample().base), "line 1 of", kCloudPolicyRefused},
      {set, application("nul", sample().web), "\"nul\""},
      {set, application("Web", sample().web), "\"Web\""},
  };
  for (const auto& row : cases) {
    std::string detail;
    EXPECT_EQ(world.codeOf(row.method, row.params, &detail), row.code) << row.detail;
    EXPECT_THAT(detail, HasSubstr(row.detail));
    EXPECT_EQ(world.driverPolicy, inForce);
  }
  world.config.setPolicyError(0, "No Error");
  EXPECT_EQ(world.machine.ini(), ini);
  world.config.setIPSEnabled(false);
  EXPECT_EQ(world.codeOf("policy", basePolicy(sample().base)), kCloudPreventionOff);
  EXPECT_EQ(world.codeOf(set, application("web", sample().web)), kCloudPreventionOff);
}

TEST(CloudCommands, AChangedRequestForTheBuiltInPolicyReachesTheDriver) {
  CloudWorld world;
  const auto asked = [&world](uint32_t code) {
    size_t count = 0;
    for (const auto& call : world.machine.fake.devices.calls()) count += call.controlCode == code;
    return count;
  };
  const char* const request =
      R"({"settings":{"use.builtin.policy":"true","log.writer.limit":"9"}})";
  std::string detail;
  world.refusesBuiltIn = true;
  EXPECT_EQ(world.codeOf("configuration", request, &detail), kCloudPolicyRefused);
  EXPECT_EQ(detail, "use.builtin.policy: Failed to tell Driver to use Builtin Policy");
  EXPECT_FALSE(world.config.useBuiltInPolicy());
  EXPECT_NE(world.config.getMaxBatchSize(HIDS_RT_LOG), 9);
  world.refusesBuiltIn = false;
  EXPECT_EQ(world.codeOf("configuration", request), 0);
  EXPECT_EQ(asked(KAVIPS_USE_BUILTIN), 2U);
  EXPECT_TRUE(world.config.useBuiltInPolicy());
  EXPECT_EQ(world.codeOf("applicationPolicy.set", application("web", sample().web), &detail),
            kCloudNoBasePolicy);
  EXPECT_EQ(detail, "the built-in policy is in force");
  EXPECT_EQ(world.codeOf("policy", basePolicy(sample().base)), 0);
  EXPECT_FALSE(world.config.useBuiltInPolicy());
}

TEST(CloudAgentComm, IsConnectedWhileTheConnectorAsksAndNotesWhatItIsToBeTold) {
  CloudWorld world;
  CloudAgentComm comm(contextOfRun().shared.connector, policyPartsOfRun().shared.news);
  EXPECT_FALSE(comm.testConnection());
  ASSERT_EQ(world.codeOf("getState", "{}"), 0);
  const auto news = world.result.get<int>("news");
  EXPECT_TRUE(comm.testConnection());
  comm.reportPolicyState();
  ASSERT_EQ(world.codeOf("getState", "{}"), 0);
  EXPECT_EQ(world.result.get<int>("news"), news + 1);
  world.machine.sim.runFor(ConnectorPresence::kLatelyMs + 1000);
  EXPECT_FALSE(comm.testConnection());
  ASSERT_EQ(world.codeOf("getState", "{}"), 0);
  comm.stop();
  EXPECT_FALSE(comm.testConnection());
}

TEST(CommThread, TakesTurnsWithTheUtilityThread) {
  CloudWorld world;
  auto* util = new UtilThread(nullptr);
  util->start();
  ASSERT_EQ(world.codeOf("policy", basePolicy(sample().base)), 0);
  world.translatorRunMs = 3000;
  for (int round = 0; round < 6; ++round) {
    world.config.setRetranslateNow(true);
    world.machine.sim.runFor(700);
    EXPECT_EQ(world.codeOf("applicationPolicy.set",
                           application("web" + std::to_string(round), sample().web)),
              0);
  }
  EXPECT_GE(world.translations, 10U);
  EXPECT_FALSE(world.overlapped);
  util->stop();
  util->waitEnded(platform::kInfinite);
  Thread::dispose(util);
}

TEST(PolicyTurn, IsTakenWhenTheOtherHasDoneAndAStopEndsTheWait) {
  for (const bool stopped : {false, true}) {
    SimulatedMachine machine({.serviceType = "2"});
    const auto done = machine.sim.createEvent(true, false);
    PolicyTurns turns;
    StopToken stop;
    bool taken = false;
    int64_t waitEnded = 0;
    const auto holder = machine.sim.createThread(0, [&] {
      const PolicyTurn turn(turns, stop);
      done->wait(platform::kInfinite);
    });
    machine.sim.runFor(10);
    const auto waiter = machine.sim.createThread(0, [&] {
      const PolicyTurn turn(turns, stop);
      taken = turn.taken();
      waitEnded = machine.now();
    });
    machine.sim.runFor(300);
    const int64_t now = machine.now();
    if (stopped) stop.request();
    if (!stopped) done->set();
    machine.sim.runFor(1500);
    done->set();
    holder->join(platform::kInfinite);
    waiter->join(platform::kInfinite);
    EXPECT_EQ(taken, !stopped);
    EXPECT_LE(waitEnded - now, 10) << "it is woken up";
    EXPECT_GE(waitEnded, now);
  }
}

TEST(CommThread, AStopEndsItAtOnceAndItStartsAgain) {
  const struct {
    const char* state;
    std::function<void(CloudWorld&, Fifo&)> before;
  } cases[] = {
      {"idle", [](CloudWorld&, Fifo&) {}},
      {"a silent connector", [](CloudWorld&, Fifo& client) { client.open(); }},
      {"a wait for its turn",
       [](CloudWorld& world, Fifo& client) {
         world.holdTurn();
         client.open();
         client.writeMessage(R"({"jsonrpc":"2.0","name":"applicationPolicy.list"})", 100);
       }},
      {"a translation without an end",
       [](CloudWorld& world, Fifo& client) {
         world.translatorRunMs = platform::kInfinite;
         client.open();
         client.writeMessage(
             R"({"jsonrpc":"2.0","name":"policy","params":)" + basePolicy(sample().base) + "}",
             100);
       }},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.state);
    CloudWorld world;
    Fifo client(world.machine.fake.pipes, world.machine.sim.clock(), kCloudPipe);
    row.before(world, client);
    world.machine.sim.runFor(5000);
    const std::string before = world.driverPolicy;
    shutdownToken().request();
    EXPECT_LE(world.stop(), 200);
    shutdownToken().reset();
    client.close();
    EXPECT_EQ(world.driverPolicy, before);
    world.translatorRunMs = 0;
    world.start();
    EXPECT_EQ(world.codeOf("policy", basePolicy(sample().base)), 0);
    EXPECT_THAT(world.driverPolicy, HasSubstr("id base-7"));
  }
}

TEST(CloudStart, AStopEndsTheTranslationOfWhatIsStored) {
  CloudWorld world;
  ASSERT_EQ(world.codeOf("policy", basePolicy(sample().base)), 0);
  const std::string inForce = world.driverPolicy;
  std::string archive;
  ASSERT_TRUE(decodeBase64(sample().web, archive));
  world.machine.fake.files.put("/opt/korvane/IPS/applications/web.zip", archive);
  world.translatorRunMs = platform::kInfinite;
  const auto load = [] { loadApplicationPolicies(policyPartsOfRun()); };
  const auto start = world.machine.sim.createThread(0, load);
  world.machine.sim.runFor(5000);
  EXPECT_EQ(world.translations, 2U);
  const int64_t before = world.machine.now();
  shutdownToken().request();
  start->join(platform::kInfinite);
  EXPECT_LE(world.machine.now() - before, 200);
  shutdownToken().reset();
  EXPECT_EQ(world.driverPolicy, inForce);
  world.translatorRunMs = 0;
  load();
  EXPECT_THAT(world.driverPolicy, HasSubstr("rule deny file web /srv/web/*"));
}

}  // namespace
}  // namespace korvane
