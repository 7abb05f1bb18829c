// Policies as the update thread and the utility thread deal with them; what the pipeline
// itself does is tested with it.
#include <gmock/gmock.h>

#include "driver/driver_config.h"
#include "tests/update/cycles.h"
#include "tests/update/policy_world.h"
#include "update/policy/policy_processor.h"
#include "update/util_thread.h"
#include "util/errors.h"

namespace korvane {
namespace {

using tests::Answer;
using tests::packages;
using tests::PolicyWorld;
using tests::SimulatedMachine;
using tests::TestIds;

constexpr char kPolicy[] = "update.policy=true\npolicy.name=Base\npolicy.path=/base\n";
constexpr char kIdsPolicy[] =
    "update.policy.ids=true\npolicy.name.ids=Watch\npolicy.path.ids=/watch\n";
constexpr char kPlus[] = "/opt/korvane/IPS/driver/policy1.sbp.zip";

struct PolicyCycles : tests::NotifiedCycles {
  explicit PolicyCycles(const std::string& settings = "") : NotifiedCycles(settings) {}
  void receive(const Answer& answer, char byte) {
    machine.server.queue("update", answer);
    notify(byte);
  }
  // What the last report of a kind says.
  std::string lastResult(const std::string& type) {
    std::string last;
    for (const auto& request : machine.server.requests("result"))
      if (request.body.find("result.type=" + type + "\n") != std::string::npos) last = request.body;
    return last;
  }
  PolicyWorld world{machine};
};

// The setting, the driver and its record say what is so; the server is told that its request
// was not followed.
TEST(PolicyUpdate, ARequestForTheBuiltInPolicyThatIsNotFollowedIsToldAndTriedAgain) {
  const auto request = [](const char* value) {
    return Answer::properties("update.configuration=true\ntcp.port=2222\nuse.builtin.policy=" +
                              std::string(value) + "\n");
  };
  constexpr char kRefused[] = "result.errorcode=66\nresult.errormessage=";
  PolicyCycles cycles;
  cycles.receive(packages(kPolicy, {{"policy", "bytes"}}), 2);
  const auto holds = [&cycles](bool builtIn) {
    STRING flag;
    cycles.machine.fake.registry.readString(
        "System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters", "UseBuiltin", flag);
    return cycles.world.builtin == builtIn && cycles.config().useBuiltInPolicy() == builtIn &&
           flag == STRING(builtIn ? "1" : "0");
  };
  for (bool* fault : {&cycles.world.refuses, &cycles.world.silent}) {
    *fault = true;
    cycles.receive(request("true"), 1);
    EXPECT_THAT(cycles.lastResult("config"),
                testing::HasSubstr(std::string(kRefused) +
                                   "Failed to tell Driver to use Builtin Policy\n"));
    *fault = false;
    if (fault == &cycles.world.silent) cycles.run(300);
    EXPECT_TRUE(holds(fault == &cycles.world.silent));
  }
  cycles.world.refuses = true;
  cycles.receive(request("false"), 1);
  EXPECT_THAT(cycles.lastResult("config"),
              testing::HasSubstr(std::string(kRefused) + "Driver failed to load new policy\n"));
  EXPECT_TRUE(holds(true));
  cycles.world.refuses = false;
  cycles.receive(request("true"), 1);
  cycles.run(400);
  EXPECT_TRUE(holds(true)) << "the newer request counts";
  cycles.receive(request("false"), 1);
  ASSERT_TRUE(holds(false));

  cycles.world.refuses = true;
  cycles.receive(request("true"), 1);
  const size_t asked = cycles.world.builtInRequests;
  cycles.run(298);
  EXPECT_EQ(cycles.world.builtInRequests, asked);
  cycles.run(1);
  EXPECT_EQ(cycles.world.builtInRequests, asked + 1) << "five minutes later";
  cycles.world.refuses = false;
  cycles.run(300);
  EXPECT_TRUE(holds(true));
  EXPECT_EQ(cycles.machine.countLines(",10581,"), 4U) << "a repetition is not told again";
  EXPECT_EQ(cycles.machine.countLines(",10583,"), 2U);

  cycles.receive(packages(kPolicy, {{"policy", "other"}}), 2);
  cycles.world.refuses = true;
  cycles.receive(request("true"), 1);
  cycles.world.refuses = false;
  cycles.receive(packages(kPolicy, {{"policy", "a third"}}), 2);
  cycles.run(400);
  EXPECT_TRUE(holds(false)) << "a policy of the server ends the request";
}

TEST(PolicyUpdate, AnAgentWithoutAPolicyIsNotBlamedForItsBuiltInOne) {
  PolicyCycles cycles;
  cycles.world.builtin = true;
  cycles.receive(Answer::properties("update.configuration=true\nuse.builtin.policy=false\n"), 1);
  EXPECT_THAT(cycles.lastResult("config"), testing::HasSubstr("result.errorcode=0\n"));
  EXPECT_EQ(cycles.world.loads, 0U);
  cycles.receive(Answer::properties("update.configuration=true\nuse.builtin.policy=true\n"), 1);
  STRING flag;
  cycles.machine.fake.registry.readString(
      "System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters", "UseBuiltin", flag);
  EXPECT_EQ(flag, STRING("1")) << "its next start is to find the request";
}

TEST(IdsPolicy, IsTranslatedAnewOnRequest) {
  struct RequestCase {
    int exitCode;
    const char* resultCode;
    const char* line;
  };
  for (const RequestCase& row : {RequestCase{0, "0", "Policy retranslation done for IDS policy: '"},
                                 {0, "4", "' is: 'said'"},
                                 {9, "0", ",10133,"}}) {
    PolicyCycles cycles;
    TestIds ids;
    ids.results = {{"IDS.Policy.ResultCode", row.resultCode}, {"IDS.Policy.ResultMessage", "said"}};
    cycles.world.exitCode = row.exitCode;
    cycles.machine.fake.files.put(kPlus, "bytes");
    cycles.config().setIDSPlusFileName(kPlus);
    cycles.config().setRetranslateIDSNow(true);
    cycles.run(2);
    EXPECT_EQ(cycles.world.translations, 1U);
    EXPECT_EQ(cycles.machine.countLines(row.line), 1U) << row.line;
    EXPECT_FALSE(cycles.config().getRetranslateIDSNow());
  }
}

TEST(IdsPolicy, ACorruptResultEndsTheThreadWithItsContext) {
  for (const bool retranslation : {false, true}) {
    PolicyCycles cycles;
    TestIds ids;
    ids.results = {{"IDS.Policy.ResultCode", "0"}};
    cycles.machine.fake.files.put(kPlus, "bytes");
    cycles.config().setIDSPlusFileName(kPlus);
    cycles.config().setRetranslateIDSNow(retranslation);
    try {
      if (retranslation)
        cycles.run(1);
      else
        cycles.receive(packages(kIdsPolicy, {{"policy", "bytes"}}), 8);
      ADD_FAILURE() << "nothing was raised";
    } catch (const AgentError& error) {
      EXPECT_EQ(error.code(), 51);
      EXPECT_EQ(error.text(), STRING("Corrupt HIDS result file."));
      EXPECT_EQ(error.context(),
                STRING(retranslation ? "processHIDSPolicyRetranslate" : "processHIDSPolicyUpdate"));
    }
    EXPECT_EQ(cycles.results("result.type=policy.ids\nresult.errorcode=51\n"),
              retranslation ? 0U : 1U);
  }
}

struct UtilCycles {
  explicit UtilCycles(const std::string& settings)
      : machine({.serviceType = "3", .settings = settings}) {
    machine.fake.files.put(kPlus, "bytes");
    config().setPlusPolicyFile(kPlus);
  }
  size_t translationsAfter(int cycles) {
    for (int i = 0; i < cycles; ++i) {
      world.output += "x";
      thread.cycle();
    }
    return world.translations;
  }
  AgentConfig& config() { return *AgentConfig::getInstance(); }
  SimulatedMachine machine;
  PolicyWorld world{machine};
  UtilThread thread{nullptr};
};

TEST(UtilThread, RetranslatesWhenItsTimerRunsOutAndOnRequest) {
  UtilCycles cycles("[AutoRetrans]\nautoretrans.enabled=true\nautoretrans.interval=10\n");
  EXPECT_EQ(cycles.translationsAfter(10), 0U);
  EXPECT_EQ(cycles.translationsAfter(1), 1U) << "the count is at 0 behind ten steps";
  EXPECT_EQ(cycles.world.loads, 1U);
  EXPECT_EQ(cycles.translationsAfter(10), 1U);
  EXPECT_EQ(cycles.translationsAfter(1), 2U) << "the step at 0 loads the interval";
  cycles.translationsAfter(4);
  cycles.config().setAutoRetransEnabled(false);
  EXPECT_EQ(cycles.translationsAfter(100), 2U);
  cycles.config().setRetranslateNow(true);
  EXPECT_EQ(cycles.translationsAfter(3), 3U);
  EXPECT_FALSE(cycles.config().getRetranslateNow());
  cycles.config().setAutoRetransEnabled(true);
  EXPECT_EQ(cycles.translationsAfter(6), 3U) << "the count goes on where it stood";
  EXPECT_EQ(cycles.translationsAfter(1), 4U);
}

TEST(UtilThread, PassesOverABuiltInPolicyAndReportsNothing) {
  UtilCycles cycles("[AutoRetrans]\nautoretrans.enabled=true\nautoretrans.interval=2\n");
  cycles.world.builtin = true;
  EXPECT_EQ(cycles.translationsAfter(3), 0U);
  EXPECT_EQ(cycles.machine.countLines(
                "Bypassing policy retranslation because built-in IPS Policy is in use"),
            1U);
  EXPECT_EQ(cycles.config().getPolicyErrorCode(), 0) << "its prevention test is its own affair";
  EXPECT_EQ(cycles.machine.server.count("result"), 0U);
}

TEST(UtilThread, TakesOverThePolicyOfTheChannelWhichIsReportedToNoServer) {
  SimulatedMachine machine({.serviceType = "2"});
  PolicyWorld world(machine);
  UtilThread thread{nullptr};
  thread.cycle();
  const uint64_t before = policyPartsOfRun().shared.news.number();
  thread.cycle();
  PolicyProcessor policy(policyPartsOfRun());
  const PropertyList named = {{"policy.name", "B"}, {"policy.path", "/b"}};
  ASSERT_TRUE(policy.installPolicy("source", named));
  EXPECT_EQ(policyPartsOfRun().shared.news.number(), before + 1);
  world.exitCode = 1;
  EXPECT_FALSE(policy.installPolicy("source", named));
  PolicyProcessor(policyPartsOfRun()).reportOutstanding();
  EXPECT_EQ(policyPartsOfRun().shared.news.number(), 2U) << "told once";
  for (const char* exchange : {"result", "testConnection", "register"})
    EXPECT_EQ(machine.server.count(exchange), 0U);
  const size_t damagedItems = machine.countLines(",10591,");
  thread.cycle();
  EXPECT_EQ(machine.countLines(",10591,"), damagedItems + 1) << "its empty items are read";
  thread.cycle();
  EXPECT_EQ(machine.countLines(",10591,"), damagedItems + 1);
}

TEST(UtilThread, StartsWorksAndStops) {
  SimulatedMachine machine({.serviceType = "3"});
  auto* thread = new UtilThread(nullptr);
  thread->start();
  machine.sim.runFor(10500);
  EXPECT_GE(machine.countLines("::monitorPrevention") + machine.countLines("UtilThread"), 1U);
  const int64_t before = machine.now();
  thread->stop();
  thread->waitEnded(platform::kInfinite);
  EXPECT_EQ(machine.now(), before);
  EXPECT_EQ(machine.countLines("*****UtilThread exiting*****"), 1U);
  Thread::dispose(thread);
}

}  // namespace
}  // namespace korvane
