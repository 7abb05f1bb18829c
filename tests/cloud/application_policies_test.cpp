// Policies of single applications: what a start makes of the folder, and that after any failure or
// crash the folder, the policy in force and the driver agree on the former set or on the new one.
#include "cloud/application_policies.h"

#include <gmock/gmock.h>

#include <cstdio>
#include <functional>
#include <map>
#include <set>
#include <tuple>

#include "archive/zip_writer.h"
#include "cloud/cloud_errors.h"
#include "config/agent_config.h"
#include "config/policy_settings.h"
#include "config/settings.h"
#include "rpc/rpc_errors.h"
#include "tests/policy/policy_world.h"
#include "tests/support/logged_events.h"

namespace korvane {
namespace {

using tests::Machine;
using tests::PolicyWorld;
using tests::Tripwire;

constexpr char kFolder[] = "/opt/korvane/IPS/applications/";
constexpr char kBefore[] = "A,mail=1,web=1";
constexpr char kReplaced[] = "one policy of an application, and another";
constexpr char kRemoved[] = "a removal, and the application anew";

#ifdef __SANITIZE_THREAD__
constexpr size_t kStride = 17;
#else
constexpr size_t kStride = 1;
#endif

std::string packed(const std::string& text) {
  archive::ZipWriter zip("test");
  archive::Refusal refusal;
  zip.add("policy.txt", text, refusal);
  return zip.finish();
}

// "A,mail=1,web=2": the base policy and its applications, in the order of their names.
std::string describe(const std::string& plus) {
  archive::ZipArchive zip("plus", plus);
  archive::Refusal refusal;
  std::string name, text;
  if (!zip.open(refusal) || !zip.read("policy.txt", name, refusal)) return "?";
  std::set<std::string> parts;
  for (const archive::Entry& entry : zip.entries()) {
    if (!entry.name.starts_with(kApplicationsFolder)) continue;
    zip.read(entry, text, refusal);
    const size_t from = sizeof kApplicationsFolder - 1;
    parts.insert(entry.name.substr(from, entry.name.find('/', from) - from) + "=" + text);
  }
  for (const std::string& part : parts) name += "," + part;
  return name;
}

std::string toSource(const std::string& plus) {
  const std::string all = describe(plus);
  return tests::source(all, all.find("=fail") != std::string::npos ? "fail" : "");
}

// Policy A with web=1 and mail=1 is in force.
Machine machineWithApplications() {
  Machine machine = tests::installedMachine();
  archive::ZipWriter plus("plus");
  archive::Refusal refusal;
  plus.add("policy.txt", "A", refusal);
  for (const char* name : {"mail", "web"}) {
    plus.add(std::string("applications/") + name + "/policy.txt", "1", refusal);
    machine.files[std::string(kFolder) + name + ".zip"] = packed("1");
  }
  machine.files[tests::kOldPlus] = plus.finish();
  machine.driverPolicy = machine.files[tests::kOldMinus] = tests::minusOf("A,mail=1,web=1", "1");
  return machine;
}

struct World : PolicyWorld {
  explicit World(const Machine& machine) : PolicyWorld(machine, /*serviceType=*/2) {
    readSource = toSource;
    PolicyProcessor(policyPartsOfRun()).reconcile();
    trip = {};
  }

  std::string inForce() {
    return describe(fake.files.content(AgentConfig::getInstance()->getPlusPolicyFile().toUtf8()));
  }
  std::string inDriver() {
    std::istringstream words(driverPolicy());
    std::string word, name;
    words >> word >> name;
    return name;
  }
  std::string inFolder(const std::string& base) {
    std::string all = base;
    for (const std::string& path : fake.files.paths()) {
      if (!path.starts_with(kFolder)) continue;
      const std::string name = path.substr(sizeof kFolder - 1);
      if (!name.ends_with(".zip")) return "left over: " + name;
      all += "," + name.substr(0, name.size() - 4) + "=" + describe(fake.files.content(path));
    }
    return all;
  }
  // Empty when driver, policy file and folder agree.
  std::string disagreement() {
    const std::string all = inForce();
    if (inDriver() != all) return "the driver has " + inDriver() + ", the policy is " + all;
    const std::string folder = inFolder(all.substr(0, all.find(',')));
    return folder == all ? "" : "the folder has " + folder + ", the policy is " + all;
  }
};

const PolicySettings& policySettings() {
  return settingsOf(*AgentConfig::getInstance()).policy;
}

ApplicationPolicies policiesOf(PolicyProcessor& policy) {
  return {policy, platform::current().files, policySettings()};
}

void load() {
  loadApplicationPolicies(policyPartsOfRun());
}

struct Step {
  std::function<void(ApplicationPolicies&)> run;
  std::string after;
};

struct Change {
  const char* name;
  std::vector<Step> steps;  // what one leaves is what the next finds
};

std::vector<Change> changes() {
  return {
      {kReplaced,
       {{[](auto& policies) { policies.set("web", packed("2")); }, "A,mail=1,web=2"},
        {[](auto& policies) { policies.set("web", packed("3")); }, "A,mail=1,web=3"}}},
      {kRemoved,
       {{[](auto& policies) { policies.remove("mail"); }, "A,web=1"},
        {[](auto& policies) { policies.set("mail", packed("2")); }, "A,mail=2,web=1"}}},
      {"one that cannot be translated",
       {{[](auto& policies) { policies.set("web", packed("fail")); }, kBefore}}},
      {"a new base policy",
       {{[](auto& policies) { policies.installBase(packed("B"), tests::propertiesOf("B")); },
         "B,mail=1,web=1"}}},
  };
}

int codeOf(const std::function<void()>& run) {
  try {
    run();
    return 0;
  } catch (const RPCError& error) {
    return error.code();
  }
}

using Sets = std::set<std::string>;

// Runs the steps, and after each tells what may be in force: what was told last, or the
// step that was the agent's last.
void runSteps(World& world, const Change& change, const std::function<void(const Sets&)>& after) {
  PolicyProcessor policy(policyPartsOfRun());
  ApplicationPolicies policies = policiesOf(policy);
  Sets may = {kBefore};
  for (const Step& step : change.steps) {
    const int code = codeOf([&] { step.run(policies); });
    if (code == 0 && !world.trip.dead) may.clear();
    if (code == 0 || world.trip.dead) may.insert(step.after);
    after(may);
    if (world.trip.dead) break;
  }
}

// The next start, and then a change that succeeds.
std::string afterRestart(const Machine& machine, const Sets& may) {
  World world(machine);
  load();
  if (const std::string problem = world.disagreement(); !problem.empty()) return problem;
  if (!may.contains(world.inForce())) return "it is " + world.inForce();
  PolicyProcessor policy(policyPartsOfRun());
  const int code = codeOf([&] { policiesOf(policy).set("next", packed("1")); });
  if (code != 0) return "the next change fails with " + std::to_string(code);
  return world.disagreement();
}

struct Swept {
  size_t points = 0, states = 0;
  std::vector<std::string> problems;
};

// Makes every call of a change fail, or the last one, and starts again on what may be left after
// each step, whether the process ends then or the power fails. With a flush left out, up to the
// first problem that comes of it.
Swept sweep(const Change& change, size_t leftOut = platform::RecordingFiles::kNoFlush) {
  const bool whole = leftOut == platform::RecordingFiles::kNoFlush;
  Swept swept;
  std::set<std::tuple<std::map<std::string, std::string>, STRING, std::string, Sets>> seen;
  bool more = true;
  // Behind the last call nothing fails, and what was told may not be lost.
  for (size_t at = 1; more && (whole || swept.problems.empty()); at += whole ? kStride : 1)
    for (const auto way : {Tripwire::Way::isTheLast, Tripwire::Way::fails}) {
      std::vector<std::pair<Machine, Sets>> left;
      std::string point = change.name;
      {
        World world(machineWithApplications());
        world.recording->leaveOutFlush(leftOut);
        world.trip.at = at;
        world.trip.way = way;
        runSteps(world, change, [&](const Sets& may) {
          for (const Machine& machine : world.afterPowerLoss()) left.emplace_back(machine, may);
          left.emplace_back(world.afterEnd(), may);
          if (!world.trip.tripped.empty()) return;
          EXPECT_EQ(Sets{world.inForce()}, may) << change.name;
          EXPECT_EQ(world.disagreement(), "") << change.name;
        });
        more = !world.trip.tripped.empty();
        point += ": " + world.trip.tripped;
        // The flush comes later; after a failure it would have another number.
        if (!whole && world.recording->flushes() <= leftOut) break;
      }
      ++swept.points;
      for (const auto& [machine, may] : left) {
        if (!seen.insert({machine.files, machine.filterFile, machine.driverPolicy, may}).second)
          continue;
        const std::string problem = afterRestart(machine, may);
        if (!problem.empty())
          swept.problems.push_back(point + ", " + machine.ended + ": " + problem);
      }
    }
  swept.states = seen.size();
  return swept;
}

TEST(ApplicationPolicyFaults, EveryCallThatFailsOrIsTheLastLeavesAWholeSet) {
  size_t points = 0, states = 0;
  for (const Change& change : changes()) {
    const Swept swept = sweep(change);
    points += swept.points;
    states += swept.states;
    for (const std::string& problem : swept.problems) ADD_FAILURE() << problem;
  }
  std::printf("%zu calls failed or were the last, %zu states were started again\n", points, states);
}

// Of what another change of the same application follows.
TEST(ApplicationPolicyFaults, EveryFlushOfTheFolderIsMissedWhenItIsLeftOut) {
  std::map<std::string, size_t> count;
  for (const Change& change : changes()) {
    if (change.steps.size() < 2) continue;
    std::vector<std::string> flushes;
    {
      World world(machineWithApplications());
      runSteps(world, {change.name, {change.steps.front()}}, [](const Sets&) {});
      for (size_t flush = 0; flush < world.recording->flushes(); ++flush)
        flushes.push_back(world.recording->describeFlush(flush));
    }
    for (size_t flush = 0; flush < flushes.size(); ++flush) {
      if (flushes[flush].find("/IPS/applications") == std::string::npos) continue;
      ++count[change.name];
      EXPECT_FALSE(sweep(change, flush).problems.empty())
          << change.name << ": " << flush << ", " << flushes[flush];
    }
  }
  EXPECT_EQ(count, (std::map<std::string, size_t>{{kReplaced, 3}, {kRemoved, 2}}));
}

TEST(ApplicationPolicies, AStartPutsTheFolderInForceAndPassesOverWhatIsDamaged) {
  Machine machine = machineWithApplications();
  machine.files[std::string(kFolder) + "web.zip"] = packed("2");
  machine.files[std::string(kFolder) + "mail.zip"] = packed("1").substr(0, 60);
  machine.files[std::string(kFolder) + "new.zip"] = packed("1");
  machine.files[std::string(kFolder) + "Read me.zip"] = "no application's name";
  World world(machine);
  LoggedEvents events(world.fake.files);
  load();
  EXPECT_EQ(world.inDriver(), "A,mail=1,new=1,web=2") << "the damaged one stays as it is in force";
  EXPECT_EQ(world.inForce(), world.inDriver());
  EXPECT_THAT(events.all(), testing::Contains(10620).Times(1));
  const size_t translations = world.fake.processes.starts().size();
  load();
  EXPECT_EQ(world.fake.processes.starts().size(), translations) << "nothing to do";

  world.fake.files.remove(std::string(kFolder) + "mail.zip");
  world.fake.files.put(std::string(kFolder) + "web.zip", packed("fail"));
  load();
  EXPECT_EQ(world.inDriver(), "A,mail=1,new=1,web=2") << "refused as a whole";
  EXPECT_THAT(events.all(), testing::Contains(10621).Times(1));
  PolicyProcessor policy(policyPartsOfRun());
  ApplicationPolicies policies = policiesOf(policy);
  EXPECT_TRUE(policies.set("web", packed("3")));
  EXPECT_FALSE(policies.set("web", packed("3"))) << "it is in force";
  EXPECT_EQ(world.inDriver(), "A,mail=1,new=1,web=3");
  for (const bool builtIn : {false, true}) {
    AgentConfig::getInstance()->setUseBuiltInPolicy(builtIn);
    for (const auto& each : policies.list()) EXPECT_EQ(each.inForce, !builtIn) << each.name;
  }
}

TEST(ApplicationPolicies, NothingIsSettledWhileAPolicyChangeIsNotUndone) {
  const std::string staged = std::string(kFolder) + "web.zip.next";
  World world(machineWithApplications());
  world.fake.files.put(staged, packed("2"));
  world.fake.files.put(tests::kJournal, "of a change that could not be undone");
  PolicyProcessor policy(policyPartsOfRun());
  EXPECT_EQ(codeOf([&] { policiesOf(policy).list(); }), kCloudPolicyRefused);
  EXPECT_EQ(world.fake.files.content(staged), packed("2"));
}

TEST(ApplicationPolicies, WithoutABasePolicyTheyWaitForOne) {
  Machine machine;
  machine.driverBuiltIn = true;
  machine.files = {{"/opt/korvane/IPS/lockFile", ""},
                   {tests::kIni, ""},
                   {std::string(kFolder) + "web.zip", packed("1")}};
  World world(machine);
  load();
  PolicyProcessor policy(policyPartsOfRun());
  ApplicationPolicies policies = policiesOf(policy);
  EXPECT_EQ(codeOf([&] { policies.set("mail", packed("1")); }), kCloudNoBasePolicy);
  ASSERT_EQ(policies.list().size(), 1U);
  EXPECT_FALSE(policies.list()[0].inForce);
  EXPECT_EQ(codeOf([&] { policies.installBase("no archive", tests::propertiesOf("B")); }),
            kRpcZipError);
  EXPECT_EQ(codeOf([&] { policies.installBase(packed("B"), tests::propertiesOf("B")); }), 0);
  EXPECT_EQ(world.inDriver(), "B,web=1");
  EXPECT_EQ(world.disagreement(), "");
  archive::ZipWriter own("own");
  archive::Refusal refusal;
  own.add("policy.txt", "C", refusal);
  own.add("Applications/web/policy.txt", "9", refusal);
  EXPECT_EQ(codeOf([&] { policies.installBase(own.finish(), tests::propertiesOf("C")); }),
            kRpcZipError);
  EXPECT_EQ(codeOf([&] { policies.remove("web"); }), 0);
  EXPECT_EQ(codeOf([&] { policies.remove("web"); }), kCloudNoSuchApplication);
  EXPECT_EQ(world.inDriver(), "B");
  EXPECT_EQ(world.disagreement(), "");
}

}  // namespace
}  // namespace korvane
