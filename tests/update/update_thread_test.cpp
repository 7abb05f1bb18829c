#include <gtest/gtest.h>

#include "ids/hids_component.h"
#include "tests/update/cycles.h"

namespace korvane {
namespace {

using tests::Answer;
using tests::Cycles;

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
