// Whatever throws in a start, a run or a stop of the agent: the calls come back, and the
// next start works.
#include <gtest/gtest.h>

#include <cstdio>

#include "tests/agent/session_run.h"
#include "tests/support/throwing_platform.h"

namespace korvane {
namespace {

using tests::Answer;
using tests::SessionRun;
using tests::SimulatedMachine;
using tests::ThrowingPlatform;

constexpr int64_t kRunMs = 9000;

struct World {
  explicit World(const char* type)
      : machine({.serviceType = type,
                 .settings = "[AgentLog]\nagentlog.log.trace.messages=true\n",
                 .ownLog = false}) {
    machine.server.always("register", Answer::properties(tests::kRegistered));
  }
  ~World() { machine.beginRun(); }

  SimulatedMachine machine;
  ThrowingPlatform throwing{machine.fake.platform()};
};

// One start and one stop, in which the n-th call throws; the number of calls.
int runWith(World& world, int nth, bool once) {
  SessionRun run(world.machine, world.throwing.platform());
  world.throwing.failFrom(nth, once);
  world.machine.sim.runFor(kRunMs);
  EXPECT_TRUE(run.stop()) << "start and stop come back";
  EXPECT_TRUE(run.returned());
  const int calls = world.throwing.calls();
  world.throwing.failFrom(0, false);
  if (once && nth > 0) {
    EXPECT_TRUE(run.info || world.machine.countLines(",10560,") == 1) << "it is told";
  }
  return calls;
}

void sweep(const char* type, bool once) {
  int calls = 0;
  {
    World world(type);
    calls = runWith(world, 0, once);
    EXPECT_EQ(world.machine.countLines(",10561,") + world.machine.countLines(",10562,"), 0u);
  }
  int runs = 0;
  for (int nth = 1; nth <= calls && !testing::Test::HasFailure(); nth += 1 + nth / 25, ++runs) {
    SCOPED_TRACE("type " + std::string(type) + ", call " + std::to_string(nth));
    World world(type);
    runWith(world, nth, once);
    // The same process starts the agent again, with settings that somebody has changed, and
    // nothing throws.
    world.machine.fake.files.put(SimulatedMachine::kIni,
                                 "[Agent]\nagent.http.url=https://192.0.2.7/k/\n"
                                 "[Checksum]\nagentini.checksum=Not Computed\n");
    const size_t before = world.machine.countLines(",10106,");
    const size_t ends = world.machine.countLines(",10110,");
    runWith(world, 0, false);
    EXPECT_EQ(world.machine.countLines(",10106,"), before + 1);
    EXPECT_EQ(world.machine.countLines(",10110,"), ends + 1);
    if (type == std::string("1")) {
      EXPECT_NE(world.machine.lines(",10167,").back().find("192.0.2.7"), std::string::npos);
    }
  }
  std::printf("type %s: %d calls, %d of them made to throw %s\n", type, calls, runs,
              once ? "once" : "from then on");
}

TEST(Faults, OneThrowAnywhereIsSurvivedByTheStopAndByTheNextStart) {
  for (const char* type : {"1", "2"}) sweep(type, true);
}

TEST(Faults, ThrowsWithoutEndAreSurvivedByTheStopAndByTheNextStart) {
  for (const char* type : {"1", "2"}) sweep(type, false);
}

}  // namespace
}  // namespace korvane
