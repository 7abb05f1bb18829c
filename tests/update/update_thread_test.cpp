#include <gtest/gtest.h>

#include "ids/hids_component.h"
#include "platform/error_codes.h"
#include "tests/update/cycles.h"
#include "tests/update/policy_world.h"
#include "update/supervised_update_thread.h"

namespace korvane {
namespace {

using tests::Answer;
using tests::Cycles;
using tests::SimulatedMachine;

TEST(UpdateThread, RepeatsNoStatusThatWasAnsweredWhilePollingIsDisabled) {
  for (const int code : {17, 200, 300, 301, 302, 400, 600}) {
    Cycles cycles("[Polling]\npolling.enabled=false\n");
    cycles.machine.server.always("result", Answer::error(code));
    EXPECT_EQ(cycles.statusesAfter(1000), 1U) << code;
    EXPECT_EQ(cycles.machine.countLines(",10221,"), 0U) << "none is tried without an identity";
    cycles.config().setUniqueId("new");
    EXPECT_EQ(cycles.statusesAfter(1000), code == 400 ? 2U : 1U) << "the new identity's first";
    // A server that knows no identity that it gives is not asked in a loop.
    for (int i = 0; i < 1000 && code == 400; ++i) {
      cycles.config().setUniqueId("new");
      cycles.run(1);
    }
    EXPECT_LE(cycles.statuses(), 12U);
    EXPECT_EQ(cycles.config().isFirstUpdateDone(), code == 200);
  }
}

// What the conversation about it does not show: no event is repeated while the result stays as it is,
// and a stop ends the pause.
TEST(UpdateThread, GoesOnAMinuteAfterAnErrorAndStopsInBetween) {
  SimulatedMachine machine({.settings = "agent.id=known\n[Polling]\npolling.interval=10\n"});
  tests::TestIds ids;
  ids.results = {};
  machine.server.always("result", Answer::properties("update.configuration.ids=true\n"));
  machine.server.always("update", Answer::properties("update.configuration=true\nids.a=b\n"));
  SupervisedUpdateThread thread(nullptr);
  thread.start();
  machine.sim.runFor(59000);
  EXPECT_EQ(machine.countLines(",10580,") + machine.countLines(",10742,"), 1U);
  machine.sim.runFor(141000);
  EXPECT_EQ(machine.countLines(",10580,"), 4U);
  EXPECT_EQ(machine.countLines(",10742,"), 3U);
  const int64_t before = machine.now();
  thread.stop();
  EXPECT_TRUE(thread.waitEnded(2000));
  EXPECT_LE(machine.now() - before, 2000);
}

TEST(Prevention, SaysWhetherItIsEnforced) {
  struct EnforcedCase {
    uint32_t error;  // of the test's key
    const char* settings;
    bool enforced;
  };
  for (const EnforcedCase& row : {EnforcedCase{platform::kErrorAccessDenied, "", true},
                                  {platform::kErrorFileNotFound, "", false},
                                  {platform::kOk, "", false},
                                  {platform::kErrorAccessDenied, "ips.enabled=false\n", false}}) {
    Cycles cycles(std::string("[Driver]\n") + row.settings);
    cycles.config().setIPSEnforced(!row.enforced);
    cycles.machine.fake.registry.refuseBelow("Software\\Dalvora", row.error);
    cycles.run(1);
    EXPECT_EQ(cycles.config().isIPSEnforced(), row.enforced) << row.error << row.settings;
  }
}

TEST(Prevention, TakesTheIdsLogSearchAlong) {
  Cycles cycles("[Driver]\nips.enabled=false\n");
  cycles.machine.fake.files.put("/opt/korvane/IDS/ids.properties",
                                "ids.service.eventfile.name=/var/e.csv\n"
                                "ids.service.rteventfile.name=../logs/rt.csv\n");
  HidsComponent ids({cycles.machine.fake.files, cycles.machine.sim.clock(), shutdownToken()},
                    idsDirectory(), [] { return 1; });
  AgentConfig::setHIDSInterface(&ids);
  cycles.thread.cycle();
  AgentConfig::setHIDSInterface(nullptr);
  EXPECT_EQ(cycles.config().getHIDSLogFile(), STRING("/var/e.csv"));
  EXPECT_EQ(cycles.config().getHIDSRTLogFile(), STRING("/opt/korvane/IDS/bin/../logs/rt.csv"));
}

}  // namespace
}  // namespace korvane
