// What the load of the settings at a start has to tell stands in the agent's own log, which opens
// after it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <regex>

#include "config/ini_text.h"
#include "tests/agent/session_run.h"
#include "util/sha256.h"

namespace korvane {
namespace {

using tests::SessionRun;
using tests::SimulatedMachine;

constexpr char kFallback[] = "/opt/korvane/IPS/fallback.ini";
constexpr char kLock[] = "/opt/korvane/IPS/lockFile";

std::string whole(const std::string& text) {
  return text + "[Checksum]\nagentini.checksum=" + sha256Hex(text) + "\n";
}

// Number, time and text of the events of a log, up to the one that says that the agent started.
struct Told {
  std::vector<int> numbers;
  std::string text;
};
Told toldBeforeTheStart(SimulatedMachine& machine) {
  Told told;
  for (const std::string& line : machine.lines()) {
    std::smatch found;
    if (!std::regex_match(line, found, std::regex("A[A-Z]{3},[0-9]+,[^,]*,([0-9]+),(.*)")))
      continue;
    const int number = std::stoi(found[1]);
    if (number == 10106) break;
    if (number / 10 == 1052) told.numbers.push_back(number);
    told.text += found.str(2) + "\n";
  }
  return told;
}

TEST(StartLog, EveryTroubleOfTheFirstLoadIsTold) {
  const std::string good = whole("[Agent]\nagent.name=kept\nagent.id=known\n");
  const std::string torn = good.substr(0, 30) + "x" + good.substr(30);
  struct Case {
    const char* what;
    std::string agentIni;
    std::string fallback;  // empty: missing
    bool locked;
    std::vector<int> events;
    std::vector<const char*> texts;
  };
  const Case cases[] = {
      {"whole", good, good, false, {}, {}},
      {"agent.ini damaged",
       torn,
       good,
       false,
       {10520, 10521},
       {"agent.ini", "inconsistent with its checksum", ".damaged-2026", "fallback.ini"}},
      {"both damaged", torn, torn, false, {10520, 10520, 10522}, {"fallback.ini.damaged-"}},
      {"no fallback", torn, "", false, {10520, 10522}, {"missing"}},
      {"no lock file to be had", good, good, true, {10523}, {"lockFile 13"}},
      {"FIPS without a module",
       whole("fips.enabled=true\nagent.id=known\n"),
       good,
       false,
       {10524},
       {"switched on", "fipsmodule.cnf"}},
      {"unknown values",
       whole("polling.interval=soon\nagent.id=known\nips.enabled=perhaps\ntoken=" +
             std::string(70000, 's') + "\n"),
       good,
       false,
       {10525},
       {"3 /opt/korvane/IPS/agent.ini", "polling.interval=soon", "ips.enabled=perhaps",
        "token=****"}},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    SimulatedMachine machine({.serviceType = "0", .ownLog = false});
    machine.fake.files.put("/opt/korvane/bin/korvane-events.txt",
                           "10520 AWRN %1 %2 %3\n10521 AWRN %1 %2 %3\n10522 AERR %1 %2 %3 %4\n"
                           "10523 AERR %1 %2\n10524 AERR switched %1 %2\n10525 AWRN %1 %2 %3\n"
                           "10106 AINF started\n");
    machine.fake.files.put(SimulatedMachine::kIni, each.agentIni);
    if (!each.fallback.empty()) machine.fake.files.put(kFallback, each.fallback);
    std::unique_ptr<platform::FileLock> held;
    if (each.locked) {
      ASSERT_EQ(machine.fake.files.lock(kLock, held), 0);
    }
    SessionRun run(machine);
    machine.sim.runFor(20000);
    held.reset();
    EXPECT_TRUE(run.stop());
    EXPECT_EQ(machine.countLines(",10106,"), 1u) << "the agent starts all the same";
    const Told told = toldBeforeTheStart(machine);
    EXPECT_EQ(told.numbers, each.events) << told.text;
    for (const char* text : each.texts) EXPECT_THAT(told.text, testing::HasSubstr(text));
    EXPECT_EQ(machine.countLines("ssss"), 0u) << "a secret is not shown";
  }
}

TEST(StartLog, WhatStrangersMayChangeIsRefusedOrToldOf) {
  struct Row {
    const char* spoilt;
    bool allowed;
    bool starts;
    const char* event;
  };
  const Row rows[] = {
      {"/opt/korvane/IPS/agent.ini", false, false, ",10560,"},
      {"/opt/korvane", false, false, ",10560,"},
      {"/opt/korvane/bin", false, false, ",10560,"},
      {"/etc/machine.reg", false, false, ",10560,"},
      {"/run/agent", false, false, ",10560,"},
      {"/opt/korvane", true, true, ",10563,"},
      {"/run/agent", true, true, ",10563,"},
      {"/opt/korvane/IPS/extensions", true, true, ",10563,"},
      {"/opt/korvane/IPS/extensions", false, true, ",10530,"},
      {"/opt/korvane/IPS/bin", false, true, ",10564,"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.spoilt);
    SimulatedMachine machine({.serviceType = "0", .ownLog = false});
    machine.fake.systemInfo.variables = {{"KORVANE_REGISTRY", "/etc/machine.reg"},
                                         {"KORVANE_RUN_DIR", "/run/agent"}};
    machine.fake.rights.spoilt = {row.spoilt};
    machine.fake.rights.allowed = row.allowed;
    machine.fake.files.put("/opt/korvane/IPS/driver/policy.journal.new-0123456789ab", "half");
    SessionRun run(machine);
    machine.sim.runFor(5000);
    EXPECT_EQ(machine.countLines(",10106,") == 1, row.starts);
    EXPECT_EQ(run.returned(), !row.starts);
    EXPECT_EQ(machine.fake.files.content("/opt/korvane/IPS/driver/policy.journal.new-0123456789ab"),
              row.starts ? "" : "half");
    const std::vector<std::string> told = machine.lines(row.event);
    ASSERT_EQ(told.size(), 1u);
    EXPECT_THAT(told[0], testing::HasSubstr(std::string(row.spoilt) + " is writable"));
    EXPECT_TRUE(run.stop());
  }
}

TEST(StartLog, TheFirstLoadIsTracedWithItsOwnTimesWhenTracingIsOn) {
  for (const bool traced : {true, false}) {
    SimulatedMachine machine(
        {.serviceType = "0",
         .settings = traced ? "[AgentLog]\nagentlog.log.trace.messages=true\n" : "",
         .ownLog = false});
    std::unique_ptr<platform::FileLock> held;
    ASSERT_EQ(machine.fake.files.lock(kLock, held), 0);
    SessionRun run(machine);
    machine.sim.runFor(3500);
    held.reset();
    machine.sim.runFor(10000);
    EXPECT_TRUE(run.stop());
    const auto waits = machine.lines("Waiting to open lock file");
    ASSERT_EQ(waits.size(), traced ? 4u : 0u);
    for (size_t i = 0; i < waits.size(); ++i) {
      EXPECT_THAT(waits[i], testing::StartsWith("TRAC," + std::to_string(i + 1) + ",")) << "first";
      EXPECT_THAT(waits[i], testing::HasSubstr(":0" + std::to_string(i + 1) + ".000,"))
          << "a second apart";
    }
    const int loaded = machine.position("Agent Configuration Updated from disk");
    EXPECT_EQ(loaded >= 0, traced);
    EXPECT_LT(loaded, machine.position("KorvaneAgent Constructor") + !traced);
  }
}

// While the first load waits for the lock file there is no agent yet that could be stopped.
TEST(StartLog, AStopEndsTheFirstLoadsWaitAndTheAgentDoesNotRun) {
  for (const int64_t after : {1, 1500, 8900}) {
    SimulatedMachine machine({.serviceType = "0", .ownLog = false});
    std::unique_ptr<platform::FileLock> held;
    ASSERT_EQ(machine.fake.files.lock(kLock, held), 0);
    {
      SessionRun run(machine);
      machine.sim.runFor(after);
      const int64_t before = machine.now();
      EXPECT_TRUE(run.stop());
      EXPECT_LE(machine.now() - before, 1000) << after;
    }
    held.reset();
    EXPECT_EQ(machine.countLines("KorvaneAgent::run()"), 0u) << after;
    SessionRun again(machine);
    machine.sim.runFor(3000);
    EXPECT_FALSE(again.returned()) << after;
    EXPECT_TRUE(again.stop());
  }
}

TEST(StartLog, StopsThatMeetTheFirstLoadsWaitDoNotWaitForEachOther) {
  for (uint64_t seed = 1; seed <= 30; ++seed) {
    SimulatedMachine machine({.serviceType = "0", .seed = seed, .ownLog = false});
    std::unique_ptr<platform::FileLock> held;
    ASSERT_EQ(machine.fake.files.lock(kLock, held), 0);
    SessionRun run(machine);
    machine.sim.runFor(1500);
    const tests::Wait wait("two stops of one start");
    const auto one = run.stopBeside(machine), other = run.stopBeside(machine);
    machine.sim.runFor(1000);
    EXPECT_EQ(one->join(0), platform::WaitResult::signalled) << seed;
    EXPECT_EQ(other->join(0), platform::WaitResult::signalled) << seed;
    EXPECT_TRUE(run.returned()) << seed;
  }
}

}  // namespace
}  // namespace korvane
