// Every call that the pipeline makes is made to fail, and is made the last one of the agent: afterwards one
// whole policy, the former or the new one, is in the driver, its registry values, agent.ini and the files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <set>
#include <sstream>

#include "tests/policy/policy_world.h"

namespace korvane {
namespace {

using tests::installedMachine;
using tests::Machine;
using tests::PolicyWorld;
using tests::Tripwire;

// With every call watched for races, a sample of them does: each run is the same single thread's.
#ifdef __SANITIZE_THREAD__
constexpr size_t kStride = 13;
#else
constexpr size_t kStride = 1;
#endif

struct Change {
  const char* name;
  std::function<Machine()> machine;
  std::function<bool(PolicyProcessor&)> run;
  std::string oldMinus;  // empty: the built-in policy
  std::string newMinus;
  bool toldToServer = true;
};

bool install(PolicyProcessor& policy, const std::string& name, const std::string& trouble = "") {
  return policy.installPolicy(tests::source(name, trouble), tests::propertiesOf(name));
}

bool retranslate(PolicyProcessor& policy) {
  AgentConfig::getInstance()->setRetranslateNow(true);
  return policy.retranslatePolicy();
}

Machine changedMachine() {
  Machine machine = installedMachine();
  machine.fact = "2";
  return machine;
}

Machine firstMachine() {
  Machine machine;
  machine.driverBuiltIn = true;
  machine.files = {
      {"/opt/korvane/IPS/lockFile", ""},
      {tests::kIni, "[Agent]\nagent.id=known\nagent.http.url=https://127.0.0.1:8443/k/\n"}};
  return machine;
}

Machine builtInMachine() {
  Machine machine = installedMachine();
  machine.files[tests::kIni] += "use.builtin.policy=true\n";
  machine.useBuiltin = "1";
  machine.driverBuiltIn = true;
  return machine;
}

std::vector<Change> changes() {
  const std::string a = tests::minusOf("A", "1");
  const std::string b = tests::minusOf("B", "1");
  return {
      {"a new policy", installedMachine, [](auto& policy) { return install(policy, "B"); }, a, b},
      {"the first policy", firstMachine, [](auto& policy) { return install(policy, "B"); }, "", b},
      {"a policy after the built-in one", builtInMachine,
       [](auto& policy) { return install(policy, "B"); }, "", b},
      {"a refused policy", installedMachine,
       [](auto& policy) { return install(policy, "B", "refuse"); }, a, a},
      {"a policy that cannot be translated", installedMachine,
       [](auto& policy) { return install(policy, "B", "fail"); }, a, a},
      {"a retranslation", changedMachine, retranslate, a, tests::minusOf("A", "2"), false},
      {"a retranslation without a change", installedMachine, retranslate, a, a, false},
  };
}

// What disagrees about the policy in force; empty when nothing does.
std::string disagreement(PolicyWorld& world, const Change& change) {
  AgentConfig& config = *AgentConfig::getInstance();
  const std::string minus = world.parameter("Filter File").toUtf8();
  const std::string onDisk = world.fake.files.content(minus);
  if (world.driverBuiltIn()) {
    if (!change.oldMinus.empty()) return "the driver fell back to its built-in policy";
    const STRING flag = world.parameter("UseBuiltin");
    if (change.machine().useBuiltin == STRING("1") && flag != STRING("1"))
      return "UseBuiltin is off";
    if (config.useBuiltInPolicy() != (change.machine().useBuiltin == STRING("1")))
      return "agent.ini and the driver's built-in policy";
    return config.getPlusPolicyFile() ==
                   STRING(change.machine().files.contains(tests::kOldPlus) ? tests::kOldPlus : "")
               ? ""
               : "agent.ini names a policy beside the built-in one";
  }
  const std::string& driver = world.driverPolicy();
  if (driver != change.oldMinus && driver != change.newMinus) return "the driver has " + driver;
  if (world.parameter("UseBuiltin") != STRING("0")) return "UseBuiltin is on";
  if (onDisk != driver) return "Filter File holds '" + onDisk + "', the driver '" + driver + "'";
  const std::string plus = config.getPlusPolicyFile().toUtf8();
  if (minus != PolicyProcessor::getPolicyBase(plus).toUtf8() + ".conf")
    return "agent.ini names " + plus + ", the driver's settings " + minus;
  std::istringstream words(driver);
  std::string word, name, fact;
  words >> word >> name >> fact;
  if (config.getPlusVersion() != STRING(name + " " + fact) && !config.getPlusVersion().empty())
    return "the version is " + config.getPlusVersion().toUtf8();
  if (config.getPlusID() != STRING("id-" + name)) return "the id is " + config.getPlusID().toUtf8();
  if (config.getPlusDBPath() != STRING("/policies/" + name))
    return "the path is " + config.getPlusDBPath().toUtf8();
  if (config.useBuiltInPolicy()) return "agent.ini wants the built-in policy";
  if (!world.fake.files.content(plus).starts_with("source " + name)) return "no plus file " + plus;
  const std::string items = world.fake.files.content(minus.substr(0, minus.size() - 5) + ".trans");
  if (items != tests::itemsOf(fact)) return "the items are '" + items + "'";
  return "";
}

// What the server was told last, against what is in force.
std::string untruth(PolicyWorld& world) {
  const std::string& status = world.lastStatus;
  if (status.empty()) return "";
  const bool builtIn = AgentConfig::getInstance()->getPlusID().empty();
  const std::string path =
      builtIn ? "policy.path=builtin"
              : "policy.path=" + AgentConfig::getInstance()->getPlusDBPath().toUtf8();
  return status.find(path + "\n") == std::string::npos ? "the server was told: " + status : "";
}

// The next successful policy: whatever was left over is gone then.
std::string afterNextPolicy(PolicyWorld& world, const Change& change, const std::string& fact) {
  PolicyProcessor policy;
  if (!install(policy, "C")) return "the next policy failed: " + policy.errorText().toUtf8();
  const Change next{"", change.machine, {}, "-", tests::minusOf("C", fact)};
  if (const std::string problem = disagreement(world, next); !problem.empty())
    return "next policy: " + problem;
  if (world.driverFolder().size() == 3) return untruth(world);
  std::string left = "left over:";
  for (const std::string& name : world.driverFolder()) left += " " + name;
  return left;
}

std::string afterRestart(const Machine& machine, const Change& change) {
  PolicyWorld world(machine);
  PolicyProcessor::reconcile();
  if (const std::string problem = disagreement(world, change); !problem.empty())
    return "restarted: " + problem;
  PolicyProcessor::reportOutstanding();
  if (const std::string problem = untruth(world); !problem.empty()) return problem;
  return afterNextPolicy(world, change, machine.fact);
}

size_t callsOf(const Change& change) {
  PolicyWorld world(change.machine());
  PolicyProcessor::reconcile();
  world.trip = {};
  PolicyProcessor policy;
  policy.InitializePloicyHistory();
  const bool loaded = change.run(policy);
  EXPECT_EQ(loaded, change.oldMinus != change.newMinus)
      << change.name << policy.errorText().toUtf8();
  EXPECT_EQ(disagreement(world, change), "") << change.name;
  return world.trip.calls;
}

// Makes the call fail and looks at what came of it, in this process and in the next. False when the call was
// none that can fail this way.
bool checkFailure(const Change& change, size_t at, Tripwire::Way way) {
  Machine left;
  std::string point = change.name;
  {
    PolicyWorld world(change.machine());
    PolicyProcessor::reconcile();
    world.trip = {};
    world.trip.at = at;
    world.trip.way = way;
    PolicyProcessor policy;
    policy.InitializePloicyHistory();
    const bool loaded = change.run(policy);
    point += ": " + world.trip.tripped;
    // Only a driver can be late.
    if (way == Tripwire::Way::failsLate && point.find("driver request") == std::string::npos)
      return false;
    if (world.fake.files.content(tests::kJournal).empty()) {
      EXPECT_EQ(disagreement(world, change), "") << point;
    }
    if (loaded) {
      EXPECT_EQ(world.driverPolicy(), change.newMinus) << point;
    }
    PolicyProcessor::reportOutstanding();
    EXPECT_EQ(untruth(world), "") << point;
    EXPECT_EQ(world.lastStatus.empty(), !change.toldToServer) << point;
    left = world.afterEnd();
    EXPECT_EQ(afterNextPolicy(world, change, left.fact), "") << point << ", same process";
  }
  EXPECT_EQ(afterRestart(left, change), "") << point;
  return true;
}

TEST(PolicyFaults, EveryCallThatFailsLeavesOneWholePolicy) {
  size_t points = 0;
  for (const Change& change : changes()) {
    const size_t calls = callsOf(change);
    for (size_t at = 1; at <= calls; at += kStride)
      for (const auto way : {Tripwire::Way::fails, Tripwire::Way::failsLate})
        points += checkFailure(change, at, way);
  }
  std::printf("%zu calls were made to fail\n", points);
}

TEST(PolicyFaults, EveryCallThatIsTheLastOneLeavesOneWholePolicyAfterTheNextStart) {
  using platform::DataLoss;
  using platform::NameLoss;
  constexpr std::pair<DataLoss, NameLoss> losses[] = {{DataLoss::none, NameLoss::all},
                                                      {DataLoss::all, NameLoss::none},
                                                      {DataLoss::all, NameLoss::all},
                                                      {DataLoss::torn, NameLoss::none},
                                                      {DataLoss::zeroed, NameLoss::none}};
  size_t points = 0;
  size_t states = 0;
  for (const Change& change : changes()) {
    const size_t calls = callsOf(change);
    for (size_t at = 1; at <= calls; at += kStride) {
      std::vector<Machine> left;
      std::string point = change.name;
      {
        PolicyWorld world(change.machine());
        PolicyProcessor::reconcile();
        world.trip = {};
        world.trip.at = at;
        world.trip.way = Tripwire::Way::isTheLast;
        PolicyProcessor policy;
        policy.InitializePloicyHistory();
        change.run(policy);
        point += ": " + world.trip.tripped;
        left.push_back(world.afterEnd());
        for (const auto& [data, names] : losses) left.push_back(world.afterPowerLoss(data, names));
      }
      ++points;
      std::set<std::map<std::string, std::string>> seen;
      for (size_t i = 0; i < left.size(); ++i) {
        if (i > 0 && !seen.insert(left[i].files).second) continue;
        ++states;
        EXPECT_EQ(afterRestart(left[i], change), "") << point << ", state " << i;
      }
    }
  }
  std::printf("the agent was ended at %zu calls, and started again on %zu states\n", points,
              states);
}

// What a change leaves that ended just before its journal went: all of it is there to be undone.
Machine unfinished(const Change& change) {
  const size_t calls = callsOf(change);
  for (size_t at = calls; at > 0; --at) {
    PolicyWorld world(change.machine());
    PolicyProcessor::reconcile();
    world.trip = {};
    world.trip.at = at;
    world.trip.way = Tripwire::Way::isTheLast;
    PolicyProcessor policy;
    policy.InitializePloicyHistory();
    change.run(policy);
    if (!world.fake.files.content(tests::kJournal).empty()) return world.afterEnd();
  }
  return {};
}

TEST(PolicyFaults, TheUndoingMayItselfBeCutShortAnywhere) {
  size_t points = 0;
  for (const Change& change : changes()) {
    const Machine machine = unfinished(change);
    if (machine.files.empty()) continue;
    for (const auto way : {Tripwire::Way::fails, Tripwire::Way::isTheLast}) {
      for (size_t at = 1;; at += kStride) {
        Machine left;
        std::string point = std::string("undoing ") + change.name + ": ";
        {
          PolicyWorld world(machine);
          world.trip = {};
          world.trip.at = at;
          world.trip.way = way;
          PolicyProcessor::reconcile();
          if (world.trip.tripped.empty()) break;
          point += world.trip.tripped;
          left = world.afterEnd();
        }
        ++points;
        EXPECT_EQ(afterRestart(left, change), "") << point;
      }
    }
  }
  EXPECT_GT(points, 100 / kStride);
  std::printf("undoing was cut short at %zu calls\n", points);
}

}  // namespace
}  // namespace korvane
