// Every call that the pipeline makes is made to fail, and is made the last one of the
// agent: afterwards one whole policy, the former or the new one, is in the driver, its
// registry values, agent.ini and the files.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <set>
#include <sstream>
#include <tuple>

#include "config/policy_settings.h"
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
  std::function<PolicyOutcome(PolicyProcessor&)> run;
  std::string oldMinus;  // empty: the built-in policy
  std::string newMinus;
  bool toldToServer = true;
};

PolicyOutcome install(PolicyProcessor& policy, const std::string& name,
                      const std::string& trouble = "") {
  return policy.installPolicy(tests::source(name, trouble), tests::propertiesOf(name));
}

PolicyOutcome retranslate(PolicyProcessor& policy) {
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

// A retranslation among what a former one has left, and journals that are damaged.
std::vector<Change> cutShort() {
  std::vector<Change> all = changes();
  const std::string a = tests::minusOf("A", "1");
  const auto stale = [] {
    Machine machine = changedMachine();
    machine.files[std::string(tests::kOldMinus) + ".old"] = tests::minusOf("Z", "0");
    machine.files[std::string(tests::kOldItems) + ".old"] = tests::itemsOf("0");
    return machine;
  };
  all.push_back({"a retranslation beside old backups", stale, retranslate, a,
                 tests::minusOf("A", "2"), false});
  const auto loaded = [] {
    Machine machine = installedMachine();
    const std::string other = std::string(tests::kDriverFolder) + "policy2..conf";
    machine.files[tests::kJournal] = "korvane-policy-change 1\nnew.plus=";
    machine.driverPolicy = machine.files[other] = tests::minusOf("B", "1");
    machine.filterFile = other;
    return machine;
  };
  all.push_back({"a damaged journal, another policy loaded", loaded, nullptr, a, a});
  const auto setAside = [] {
    Machine machine = installedMachine();
    machine.files[tests::kJournal] = "x";
    for (const std::string path : {tests::kOldMinus, tests::kOldItems})
      machine.files[path + ".old"] = machine.files.extract(path).mapped();
    return machine;
  };
  all.push_back({"a damaged journal, the policy set aside", setAside, nullptr, a, a});
  return all;
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
  PolicyProcessor policy(policyPartsOfRun());
  const PolicyOutcome installed = install(policy, "C");
  if (!installed) return "the next policy failed: " + installed.text.toUtf8();
  const Change next{"", change.machine, {}, "-", tests::minusOf("C", fact)};
  if (const std::string problem = disagreement(world, next); !problem.empty())
    return "next policy: " + problem;
  std::vector<std::string> names = world.driverFolder();
  std::erase(names, "policy.journal.damaged");
  if (names.size() == 3) return untruth(world);
  std::string left = "left over:";
  for (const std::string& name : names) left += " " + name;
  return left;
}

std::string afterRestart(const Machine& machine, const Change& change) {
  PolicyWorld world(machine);
  PolicyProcessor(policyPartsOfRun()).reconcile();
  if (const std::string problem = disagreement(world, change); !problem.empty())
    return "restarted: " + problem;
  PolicyProcessor(policyPartsOfRun()).reportOutstanding();
  if (const std::string problem = untruth(world); !problem.empty()) return problem;
  return afterNextPolicy(world, change, machine.fact);
}

size_t callsOf(const Change& change) {
  PolicyWorld world(change.machine());
  PolicyProcessor(policyPartsOfRun()).reconcile();
  world.trip = {};
  PolicyProcessor policy(policyPartsOfRun());
  policy.InitializePloicyHistory();
  const PolicyOutcome outcome = change.run(policy);
  EXPECT_EQ(bool(outcome), change.oldMinus != change.newMinus)
      << change.name << outcome.text.toUtf8();
  EXPECT_EQ(disagreement(world, change), "") << change.name;
  return world.trip.calls;
}

// Makes the call fail and looks at what came of it, in this process and in the next. False when the
// call was none that can fail this way.
bool checkFailure(const Change& change, size_t at, Tripwire::Way way) {
  Machine left;
  std::vector<Machine> cut;
  std::string point = change.name;
  {
    PolicyWorld world(change.machine());
    PolicyProcessor(policyPartsOfRun()).reconcile();
    world.trip = {};
    world.trip.at = at;
    world.trip.way = way;
    PolicyProcessor policy(policyPartsOfRun());
    policy.InitializePloicyHistory();
    const bool loaded(change.run(policy));
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
    PolicyProcessor(policyPartsOfRun()).reportOutstanding();
    EXPECT_EQ(untruth(world), "") << point;
    EXPECT_EQ(world.lastStatus.empty(), !change.toldToServer) << point;
    left = world.afterEnd();
    cut = world.afterPowerLoss();
    EXPECT_EQ(afterNextPolicy(world, change, left.fact), "") << point << ", same process";
  }
  EXPECT_EQ(afterRestart(left, change), "") << point;
  for (const Machine& machine : cut)
    EXPECT_EQ(afterRestart(machine, change), "") << point << ", " << machine.ended;
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

// Ends the agent, or its machine, at every call of a change and at every call of its undoing, and
// starts it again on each of the states that may be left.
class Sweep {
 public:
  explicit Sweep(const Change& change, size_t leftOut = platform::RecordingFiles::kNoFlush)
      : _change(change), _leftOut(leftOut), _calls(change.run ? callsOf(change) : 0) {}

  void run() {
    for (size_t at = 1; at <= _calls + 1; at += kStride) {
      if (_change.run) endAt(at, 0);
      size_t undone = 1;
      while (endAt(at, undone)) undone += kStride;
    }
  }

  bool findsAProblem() {
    for (size_t at = 1; at <= _calls + 1 && problems.empty(); ++at) {
      endAt(at, 0);
      for (size_t undone = 1; problems.empty() && endAt(at, undone);) ++undone;
    }
    return !problems.empty();
  }

  size_t points = 0, states = 0;
  std::vector<std::string> problems;

 private:
  // At the `at`th call of the change, or there and then at the `undone`th call of the next start.
  // False when there is no such call, or no undoing that another end has not led to.
  bool endAt(size_t at, size_t undone) {
    std::vector<Machine> left;
    std::string point = _change.name;
    {
      PolicyWorld world(_change.machine());
      world.recording->leaveOutFlush(_leftOut);
      if (_change.run) change(world, at);
      point += ": " + world.trip.tripped;
      if (undone > 0 && !undo(world, undone)) return false;
      if (undone > 0) point += ", undone to " + world.trip.tripped;
      ++points;
      auto ended = std::pair(world.recording->size(), partsOf(world.afterEnd()));
      if (ended == _ended) return true;
      _ended = std::move(ended);
      left = world.afterPowerLoss();
      left.push_back(world.afterEnd());
    }
    for (const Machine& machine : left) {
      if (!_seen.insert(partsOf(machine)).second) continue;
      ++states;
      const std::string problem = afterRestart(machine, _change);
      if (!problem.empty()) problems.push_back(point + ", " + machine.ended + ": " + problem);
    }
    return true;
  }

  void change(PolicyWorld& world, size_t at) {
    PolicyProcessor(policyPartsOfRun()).reconcile();
    world.trip = {};
    world.trip.at = at;
    world.trip.way = Tripwire::Way::isTheLast;
    PolicyProcessor policy(policyPartsOfRun());
    policy.InitializePloicyHistory();
    _change.run(policy);
  }

  // Where most of the change is unsure, and at every step of the driver's; a journal that
  // has just gone counts.
  static bool isUndone(PolicyWorld& world, const std::string& tripped) {
    if (tripped.starts_with("flush directory")) return true;
    return (tripped.empty() || tripped.starts_with("write registry") ||
            tripped.starts_with("driver request")) &&
           !world.fake.files.content(tests::kJournal).empty();
  }

  bool undo(PolicyWorld& world, size_t at) {
    if (!isUndone(world, world.trip.tripped)) return false;
    world.restart();
    world.trip.at = at;
    world.trip.way = Tripwire::Way::isTheLast;
    PolicyProcessor(policyPartsOfRun()).reconcile();
    return !world.trip.tripped.empty();
  }

  using Parts = std::tuple<std::map<std::string, std::string>, STRING, STRING, std::string, bool>;
  static Parts partsOf(const Machine& machine) {
    return {machine.files, machine.filterFile, machine.useBuiltin, machine.driverPolicy,
            machine.driverBuiltIn};
  }

  const Change& _change;
  const size_t _leftOut;
  const size_t _calls;
  std::set<Parts> _seen;
  std::pair<size_t, Parts> _ended;
};

TEST(PolicyFaults, EveryCallThatIsTheLastOneLeavesOneWholePolicyAfterTheNextStart) {
  size_t points = 0, states = 0;
  for (const Change& change : cutShort()) {
    Sweep sweep(change);
    sweep.run();
    points += sweep.points;
    states += sweep.states;
    for (const std::string& problem : sweep.problems) ADD_FAILURE() << problem;
  }
  std::printf("ended at %zu calls, and started again on %zu states\n", points, states);
}

// From the one that makes old backups go to the one that makes the journal go.
TEST(PolicyFaults, EveryFlushOfAChangeIsMissedWhenItIsLeftOut) {
  const std::vector<Change> all = cutShort();
  const Change& change =
      *std::ranges::find(all, "a retranslation beside old backups", &Change::name);
  std::vector<std::string> flushes;
  {
    PolicyWorld world(change.machine());
    PolicyProcessor(policyPartsOfRun()).reconcile();
    PolicyProcessor policy(policyPartsOfRun());
    policy.InitializePloicyHistory();
    change.run(policy);
    for (size_t flush = 0; flush < world.recording->flushes(); ++flush)
      flushes.push_back(world.recording->describeFlush(flush));
  }
  const auto journal = std::ranges::find(flushes, "flush " + std::string(tests::kJournal) + ".new");
  ASSERT_NE(journal, flushes.end());
  const auto first = static_cast<size_t>(journal - flushes.begin()) - 1;
  ASSERT_GT(flushes.size(), first + 12);
  for (size_t flush = first; flush < first + 12; flush += kStride) {
    EXPECT_TRUE(Sweep(change, flush).findsAProblem()) << flush << ": " << flushes[flush];
  }
}

}  // namespace
}  // namespace korvane
