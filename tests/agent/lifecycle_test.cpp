#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rpc/pipe_names.h"
#include "tests/agent/running_agent.h"

namespace korvane {
namespace {

using tests::Answer;
using tests::kRegistered;
using tests::RunningAgent;
using tests::SimulatedMachine;

constexpr int64_t kStopLimitMs = 2000;

// The positions of the texts in the agent's own log must ascend.
void expectInOrder(SimulatedMachine& machine, const std::vector<std::string>& texts) {
  int last = -1;
  for (const std::string& text : texts) {
    const int at = machine.position(text);
    EXPECT_GT(at, last) << text;
    last = at;
  }
}

TEST(Lifecycle, StartsAndStopsTheThreadsOfEachServiceTypeInOrder) {
  struct TypeCase {
    const char* type;
    std::vector<const char*> stops;  // threads that are asked to stop, in this order
  };
  const TypeCase cases[] = {
      {"1",
       {"Generic AppData Processing", "Component Update", "Update", "Log Processing",
        "Bulk Log Processing"}},
      {"2",
       {"AppData Processing", "Generic AppData Processing", "Component Update", "Comm", "Util",
        "Log Processing", "Bulk Log Processing"}},
      {"3",
       {"Generic AppData Processing", "Component Update", "Comm", "Util", "Log Processing",
        "Bulk Log Processing"}},
      {"9",
       {"AppData Processing", "Generic AppData Processing", "Component Update", "Comm", "Util",
        "Log Processing", "Bulk Log Processing"}},
  };
  for (const TypeCase& row : cases) {
    SCOPED_TRACE(row.type);
    SimulatedMachine machine({.serviceType = row.type});
    machine.server.always("register", Answer::properties(kRegistered));
    RunningAgent run(machine);
    machine.sim.runFor(10000);
    std::unique_ptr<platform::Pipe> silent;
    EXPECT_EQ(machine.fake.pipes.open(kCloudPipe, silent),
              row.type == std::string("1") ? platform::kErrorFileNotFound : platform::kOk);
    EXPECT_LE(run.stop(), kStopLimitMs);
    EXPECT_EQ(run.info.count(), 0);

    std::vector<std::string> order = {",10106,"};
    for (const char* name : row.stops)
      order.push_back(",Stopping " + std::string(name) + " Thread");
    order.insert(order.end(), {"all threads cleaned up", ",10110,"});
    expectInOrder(machine, order);
    EXPECT_EQ(machine.countLines(",Stopping "), row.stops.size());
    EXPECT_EQ(machine.countLines("all threads cleaned up -1"), 0U);
    EXPECT_EQ(machine.server.count("register"), row.type == std::string("1") ? 1U : 0U);
  }
}

TEST(Lifecycle, RecordsTheFileOfItsOwnLogInTheSettings) {
  SimulatedMachine machine({.settings = "agent.id=known\n"});
  RunningAgent run(machine);
  machine.sim.runFor(10000);
  EXPECT_THAT(machine.ini(), ::testing::HasSubstr("agentlog.logfile=" + eventlog::currentFile()));
  EXPECT_FALSE(AgentConfig::getInstance()->agentLogFileChanged());
}

TEST(Lifecycle, ARegistrationWithoutAnIdentityEndsTheAgent) {
  SimulatedMachine machine;
  RunningAgent run(machine);
  machine.sim.runFor(5000);
  ASSERT_TRUE(run.returned());
  int32_t code = 0;
  char name[32];
  ASSERT_TRUE(run.info.command(0, code, name, sizeof name));
  EXPECT_EQ(code, 2);
  EXPECT_STREQ(name, "ACMD_ExitService");
  EXPECT_TRUE(run.info.pending());
  expectInOrder(machine,
                {"could not get guid", "Fatal Registration.", "KorvaneAgent shutdown called",
                 "Stopping Component Update Thread", ",10107,"});
  EXPECT_EQ(machine.countLines(",10110,"), 0U);
  EXPECT_EQ(machine.countLines("Starting Generic"), 0U);
}

TEST(Lifecycle, StopsWithinTwoSecondsInEveryState) {
  struct StopCase {
    const char* state;
    Answer registration;
    Answer status;
    int64_t afterMs;
    size_t threads;  // that were there to be stopped
  };
  const Answer registered = Answer::properties(kRegistered);
  const StopCase cases[] = {
      {"before anything has happened", registered, {}, 0, 0},
      {"registration pause", Answer::failure(7), {}, 30000, 1},
      {"hanging registration", Answer::hanging(), {}, 5000, 1},
      {"first-update wait", registered, Answer::error(500), 9000, 3},
      {"hanging status", registered, Answer::hanging(), 5000, 3},
      {"running", registered, {}, 20500, 5},
  };
  for (const StopCase& row : cases) {
    SCOPED_TRACE(row.state);
    SimulatedMachine machine;
    machine.server.always("register", row.registration);
    machine.server.always("result", row.status);
    RunningAgent run(machine);
    machine.sim.runFor(row.afterMs);
    EXPECT_LE(run.stop(), kStopLimitMs);
    EXPECT_TRUE(run.returned());
    EXPECT_EQ(run.info.count(), 0) << "a stop is not a failed registration";
    EXPECT_EQ(machine.countLines("Fatal Registration."), 0U);
    EXPECT_EQ(machine.countLines(",10107,"), 0U);
    EXPECT_EQ(machine.countLines(",10109,"), 0U) << "that is for ends that nobody asked for";
    EXPECT_EQ(machine.countLines(",10110,"), 1U);
    EXPECT_EQ(machine.countLines(",Stopping "), row.threads) << "nothing is made after the stop";
  }
}

TEST(Lifecycle, StopsWhileANameLookUpHangs) {
  SimulatedMachine machine({.url = "https://server-1.example:8443/korvane/agent/"});
  machine.fake.sockets.setResolverHangs(true);
  {
    RunningAgent run(machine);
    machine.sim.runFor(3000);
    EXPECT_EQ(machine.server.count("testConnection"), 0U);
    EXPECT_LE(run.stop(), kStopLimitMs);
    EXPECT_EQ(machine.countLines(",10110,"), 1U);
  }
  machine.fake.sockets.setResolverHangs(false);
  machine.sim.runFor(1000);  // the look-up that was left behind ends
}

TEST(Lifecycle, StopsWhileAnotherProgramHoldsTheLockFile) {
  SimulatedMachine machine({.settings = "agent.id=known\n"});
  RunningAgent run(machine);
  machine.sim.runFor(10000);
  std::unique_ptr<platform::FileLock> held;
  ASSERT_EQ(machine.fake.files.lock("/opt/korvane/IPS/lockFile", held), 0);
  const auto writer =
      machine.sim.createThread(0, [] { AgentConfig::getInstance()->setPlusID("changed"); });
  machine.sim.runFor(3000);
  EXPECT_LE(run.stop(), kStopLimitMs);
  writer->join(platform::kInfinite);
}

TEST(Lifecycle, AStopBeforeTheMainRoutineIsNotLost) {
  SimulatedMachine machine;
  machine.server.always("register", Answer::properties(kRegistered));
  KorvaneAgent agent{contextOfRun()};
  AgentInfo info;
  agent.shutdown();
  agent.shutdown();
  const int64_t before = machine.now();
  agent.run(&info);
  EXPECT_EQ(machine.now(), before);
  EXPECT_FALSE(agent.running());
  EXPECT_EQ(machine.server.count("register"), 0U);
}

TEST(Lifecycle, AHostCommandStopsTheAgentWithinASecond) {
  SimulatedMachine machine({.serviceType = "0"});
  RunningAgent run(machine);
  machine.sim.runFor(5000);
  run.info.post({1, "ACMD_Other"});
  machine.sim.runFor(2000);
  EXPECT_TRUE(run.returned());
  EXPECT_EQ(machine.countLines(",10109,"), 2U) << "the loop ends, and nobody had called stop";
  EXPECT_EQ(machine.countLines(",10110,"), 1U);
}

}  // namespace
}  // namespace korvane
