#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "rpc/pipe_names.h"
#include "tests/agent/agent_run.h"

namespace korvane {
namespace {

using tests::AgentRun;
using tests::Answer;
using tests::kRegistered;
using tests::SimulatedMachine;

constexpr int64_t kStopLimitMs = 2000;

// The positions of the texts in the own log must ascend.
void expectInOrder(SimulatedMachine& machine, const std::vector<std::string>& texts) {
  int last = -1;
  for (const std::string& text : texts) {
    const int at = machine.position(text);
    EXPECT_GT(at, last) << text;
    last = at;
  }
}

std::vector<std::byte> appliedPolicy(bool builtin) {
  std::vector<std::byte> record(1028);
  record[0] = std::byte{builtin};
  std::memcpy(record.data() + 4, u"Base", 8);
  std::memcpy(record.data() + 260, u"3", 2);
  std::memcpy(record.data() + 516, u"id-9", 8);
  return record;
}

void installDriver(SimulatedMachine& machine, const bool& builtin) {
  machine.fake.devices.setOpenError(0);
  machine.fake.devices.setHandler([&builtin](const platform::FakeDevices::Call&) {
    return platform::DeviceScript::atOnce(0, appliedPolicy(builtin));
  });
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
    AgentRun run(machine);
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

TEST(Lifecycle, AFailedFirstStatusIsSentAgainAtTheNextPollOrAfterAGrowingPause) {
  struct FirstStatusCase {
    const char* settings;
    int64_t doneAfterMs;
  };
  for (const FirstStatusCase& row :
       {FirstStatusCase{"", 303000}, {"[Polling]\npolling.enabled=false\n", 16000}}) {
    SCOPED_TRACE(row.settings);
    SimulatedMachine machine({.settings = row.settings});
    machine.server.always("register", Answer::properties(kRegistered));
    for (int i = 0; i < (row.doneAfterMs < 100000 ? 3 : 1); ++i)
      machine.server.queue("result", Answer::failure(7));
    AgentRun run(machine);
    machine.sim.runFor(row.doneAfterMs - 5000);
    EXPECT_FALSE(AgentConfig::getInstance()->isFirstUpdateDone());
    machine.sim.runFor(6000);
    EXPECT_TRUE(AgentConfig::getInstance()->isFirstUpdateDone());
    const size_t sent = machine.server.count("result");
    machine.sim.runFor(100000);
    EXPECT_EQ(machine.server.count("result"), sent) << "once it has been done, only polls send it";
  }
}

TEST(Lifecycle, ARegisteredAgentDoesNotRegister) {
  SimulatedMachine machine({.settings = "agent.id=known\n"});
  AgentRun run(machine);
  machine.sim.runFor(5000);
  EXPECT_EQ(machine.server.count("register"), 0U);
  EXPECT_EQ(machine.server.count("testConnection"), 1U);
  AgentConfig::getInstance()->setAgentName("renamed");
  run.stop();
  EXPECT_NE(machine.fake.files.content("/opt/korvane/IPS/fallback.ini").find("agent.name=renamed"),
            std::string::npos)
      << "a stop leaves both files as the agent last knew them";
}

TEST(Lifecycle, RecordsTheFileOfItsOwnLogInTheSettings) {
  SimulatedMachine machine({.settings = "agent.id=known\n"});
  AgentRun run(machine);
  machine.sim.runFor(10000);
  EXPECT_THAT(machine.ini(), ::testing::HasSubstr("agentlog.logfile=" + eventlog::currentFile()));
  EXPECT_FALSE(AgentConfig::getInstance()->agentLogFileChanged());
}

TEST(Lifecycle, ARegistrationWithoutAnIdentityEndsTheAgent) {
  SimulatedMachine machine;
  AgentRun run(machine);
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
    AgentRun run(machine);
    machine.sim.runFor(row.afterMs);
    EXPECT_LE(run.stop(), kStopLimitMs);
    EXPECT_TRUE(run.returned());
    EXPECT_EQ(run.info.count(), 0) << "a stop is no failed registration";
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
    AgentRun run(machine);
    machine.sim.runFor(3000);
    EXPECT_EQ(machine.server.count("testConnection"), 0U);
    EXPECT_LE(run.stop(), kStopLimitMs);
    EXPECT_EQ(machine.countLines(",10110,"), 1U);
  }
  machine.fake.sockets.setResolverHangs(false);
  machine.sim.runFor(1000);  // the look-up that was left behind ends
}

TEST(Lifecycle, StopsWhileTheDriverStalls) {
  SimulatedMachine machine({.settings = "agent.id=known\n"});
  machine.fake.devices.setOpenError(0);
  machine.fake.devices.setHandler([](const platform::FakeDevices::Call&) {
    return platform::DeviceScript::pending(platform::kInfinite, 0);
  });
  AgentRun run(machine);
  machine.sim.runFor(2000);
  EXPECT_LE(run.stop(), kStopLimitMs);
}

TEST(Lifecycle, StopsWhileAnotherProgramHoldsTheLockFile) {
  SimulatedMachine machine({.settings = "agent.id=known\n"});
  AgentRun run(machine);
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
  KorvaneAgent agent;
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
  AgentRun run(machine);
  machine.sim.runFor(5000);
  run.info.post({1, "ACMD_Other"});
  machine.sim.runFor(2000);
  EXPECT_TRUE(run.returned());
  EXPECT_EQ(machine.countLines(",10109,"), 2U) << "the loop ends, and nobody had called stop";
  EXPECT_EQ(machine.countLines(",10110,"), 1U);
}

TEST(Lifecycle, ReportsAndFollowsTheDriversBuiltInPolicy) {
  bool builtin = true;
  SimulatedMachine machine({.settings = "agent.id=known\n"});
  installDriver(machine, builtin);
  AgentRun run(machine);
  machine.sim.runFor(5000);
  AgentConfig& config = *AgentConfig::getInstance();
  EXPECT_EQ(config.getPolicyStateCode(), -100);
  EXPECT_EQ(config.getPlusID(), STRING("id-9"));
  EXPECT_EQ(config.getPlusVersion(), STRING("Base 3"));
  ASSERT_EQ(machine.server.count("result"), 2U) << "the policy state, then the status";
  EXPECT_THAT(machine.server.requests("result")[0].body,
              ::testing::HasSubstr("result.errorcode=-100"));

  builtin = false;
  config.setUseBuiltInPolicy(!config.useBuiltInPolicy());
  machine.sim.runFor(3000);
  EXPECT_EQ(config.getPolicyStateCode(), -101);
  EXPECT_EQ(machine.countLines("::setPolicyState - state=-101"), 1U);
  EXPECT_EQ(machine.countLines(",10166,"), 1U);
  EXPECT_EQ(machine.server.count("result"), 3U) << "the changed state is reported";
}

TEST(Lifecycle, IsTheSameRunForTheSameSeedAndHoldsForOthers) {
  uint64_t hashes[2] = {};
  for (uint64_t round = 0; round < 12; ++round) {
    SCOPED_TRACE(round);
    SimulatedMachine machine({.seed = round / 2});
    machine.server.queue("register", Answer::failure(28));
    machine.server.always("register", Answer::properties(kRegistered));
    machine.server.queue("result", Answer::error(400));
    AgentRun run(machine);
    machine.sim.runFor(400000);
    EXPECT_TRUE(AgentConfig::getInstance()->isFirstUpdateDone());
    EXPECT_EQ(machine.server.count("register"), 3U)
        << "a pause, a success, and again after the 400";
    EXPECT_LE(run.stop(), kStopLimitMs);
    hashes[round % 2] = machine.sim.scheduleHash();
    if (round % 2 == 0) continue;
    EXPECT_EQ(hashes[0], hashes[1]);
  }
}

}  // namespace
}  // namespace korvane
