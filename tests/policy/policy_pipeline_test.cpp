#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

#include "config/policy_settings.h"
#include "driver/driver_config.h"
#include "tests/policy/policy_world.h"
#include "tests/support/logged_events.h"
#include "update/policy/policy_change.h"
#include "update/policy/policy_files.h"
#include "update/policy/translator_program.h"

namespace korvane {
namespace {

using testing::HasSubstr;
using tests::installedMachine;
using tests::Machine;
using tests::minusOf;
using tests::PolicyWorld;
using tests::propertiesOf;
using tests::source;

constexpr char kIpsHistory[] = "/opt/korvane/IPS/history/history_ips.csv";

struct Pipeline {
  explicit Pipeline(const Machine& machine = installedMachine()) : world(machine) {
    PolicyProcessor(policyPartsOfRun()).reconcile();
    policy.InitializePloicyHistory();
  }
  PolicyOutcome install(const std::string& name, const std::string& trouble = "") {
    return policy.installPolicy(source(name, trouble), propertiesOf(name));
  }
  AgentConfig& config() { return *AgentConfig::getInstance(); }

  PolicyWorld world;
  PolicyProcessor policy{policyPartsOfRun()};
};

TEST(PolicyPipeline, TheTranslatorIsCalledWithTheFilesAndTheItemsOfTheFormerPolicy) {
  Pipeline pipeline;
  ASSERT_TRUE(pipeline.install("B"));
  const std::string base =
      PolicyProcessor::getPolicyBase(pipeline.config().getPlusPolicyFile()).toUtf8();
  EXPECT_TRUE(base.ends_with(".")) << "seven characters of an ending of eight";
  EXPECT_EQ(PolicyProcessor::getPolicyFileName("C:\\a\\policy1.sbp.zip"),
            STRING("policy1.sbp.zip"));
  const std::string files =
      "\"-loadtext\" \"" + base + "sbp.zip\" \"" + base + ".conf.tmp\" \"" + base + ".trans.tmp\"";
  EXPECT_EQ(pipeline.world.fake.processes.starts()[0].arguments,
            "-PrevTransFile \"" + std::string(tests::kOldItems) + "\" \"-agent\" " + files);

  Machine without = installedMachine();
  without.files.erase(tests::kOldItems);
  Pipeline first(without);
  ASSERT_TRUE(first.install("B"));
  EXPECT_THAT(first.world.fake.processes.starts()[0].arguments,
              testing::StartsWith("\"-agent\" \"-loadtext\" "));
}

// Before the load for what a rollback goes back to, after it for what is in force.
TEST(PolicyPipeline, AChangeAsksTheDriverOnceBeforeTheLoadAndOnceAfterIt) {
  Pipeline pipeline;
  ASSERT_TRUE(pipeline.install("B"));
  std::vector<uint32_t> asked;
  for (const auto& call : pipeline.world.fake.devices.calls()) asked.push_back(call.controlCode);
  EXPECT_THAT(asked,
              testing::ElementsAre(KAVIPS_QUERY_POLICY, KAVIPS_LOAD_POLICY, KAVIPS_QUERY_POLICY));
}

// The agent's other callers of the driver interface fail at the same time, each with a text
// of its own.
TEST(PolicyPipeline, ARefusalIsToldInTheDriversWordsWhateverElseFailsMeanwhile) {
  Pipeline pipeline;
  std::atomic<bool> done{false};
  std::thread other([&done] {
    STRING value;
    while (!done) EXPECT_NE(DriverConfig::getDriverConfig(DriverConfig::noValue, value), 0);
  });
  int told = 0;
  for (int i = 0; i < 500; ++i) {
    EXPECT_FALSE(pipeline.install("B", "refuse"));
    told += pipeline.config().getPolicyErrorStr() == STRING("the rules clash");
  }
  done = true;
  other.join();
  EXPECT_EQ(told, 500);
}

TEST(PolicyPipeline, AStopEndsATranslatorThatNeverEndsAndReportsNothing) {
  Pipeline pipeline;
  LoggedEvents events(pipeline.world.fake.files);
  pipeline.world.translatorRunMs = platform::kInfinite;
  pipeline.world.duringTranslation = [] { shutdownToken().request(); };
  EXPECT_TRUE(pipeline.install("B").stopped());
  EXPECT_EQ(pipeline.world.trip.terminated, 1U) << "nobody else would end it";
  EXPECT_THAT(events.all(), testing::Contains(10592));
  EXPECT_TRUE(pipeline.world.lastStatus.empty());
  EXPECT_EQ(pipeline.config().getPolicyErrorCode(), 0);
  EXPECT_EQ(pipeline.world.fake.files.content(kIpsHistory).find("policy1"), std::string::npos);

  pipeline.config().setRetranslateNow(true);
  EXPECT_TRUE(pipeline.policy.retranslatePolicy().stopped());
  EXPECT_TRUE(pipeline.config().getRetranslateNow()) << "left to the next start";
  PolicyProcessor(policyPartsOfRun()).reconcile();
  EXPECT_EQ(pipeline.world.driverFolder().size(), 3U);
}

TEST(PolicyPipeline, ATranslatorThatStrangersMayChangeOrThatNeverEndsFailsThePolicyWithTheReason) {
  struct Row {
    const char* spoilt;
    bool allowed;
    uint32_t runMs;
    const char* text;  // null: it is installed
    int event;         // 0: none
  };
  const Row rows[] = {
      {"/opt/korvane/IPS/bin", false, 0, "/opt/korvane/IPS/bin is writable by everybody", 10564},
      {"/opt/korvane/IPS/bin", true, 0, nullptr, 0},
      {"/opt/korvane/IPS/extensions", false, 0, nullptr, 0},
      {"/none", false, platform::kInfinite, "ended after 30 minutes", 10592},
      {"/none", false, TranslatorProgram::kMostMs, nullptr, 0},
  };
  for (const Row& row : rows) {
    Pipeline pipeline;
    LoggedEvents events(pipeline.world.fake.files);
    pipeline.world.fake.rights.spoilt = {row.spoilt};
    pipeline.world.fake.rights.allowed = row.allowed;
    pipeline.world.trip.translatorTakesMs = row.runMs;
    const PolicyOutcome outcome = pipeline.install("B");
    EXPECT_EQ(static_cast<bool>(outcome), row.text == nullptr) << row.spoilt << row.runMs;
    EXPECT_THAT(outcome.text.toUtf8(), testing::HasSubstr(row.text ? row.text : ""));
    EXPECT_EQ(std::ranges::count(events.all(), row.event), row.event ? 1 : 0);
    EXPECT_EQ(pipeline.world.fake.processes.starts().empty(), row.event == 10564);
    EXPECT_EQ(pipeline.world.trip.terminated, row.event == 10592 ? 1U : 0U);
  }
}

TEST(PolicyPipeline, AnIdsPolicyIsTranslatedBesideItsPlusFile) {
  Pipeline pipeline;
  STRING result = "stale";
  const std::string bytes = source("D");
  const STRING plus = pipeline.policy.savePolicyToFile(bytes.data(), bytes.size());
  ASSERT_TRUE(pipeline.policy.translateHIDSPolicy(plus, result));
  EXPECT_EQ(pipeline.world.fake.files.content(result.toUtf8()), "ids D");
  EXPECT_THAT(pipeline.world.fake.processes.starts()[0].arguments,
              testing::StartsWith("\"-hidsagent\" \"-loadtext\" "));
  EXPECT_EQ(pipeline.world.requests(KAVIPS_LOAD_POLICY), 0);

  const std::string bad = source("E", "fail");
  const STRING badPlus = pipeline.policy.savePolicyToFile(bad.data(), bad.size());
  EXPECT_EQ(pipeline.policy.translateHIDSPolicy(badPlus, result).text, STRING("line oneline two"));
  EXPECT_TRUE(result.empty());
  EXPECT_THAT(pipeline.world.fake.files.content("/opt/korvane/IPS/history/history_ids.csv"),
              HasSubstr("line oneline two"));
  pipeline.config().setIDSPlusFileName(plus);
  PolicyProcessor(policyPartsOfRun()).RemovePrevHIDSPolicies();
  EXPECT_EQ(pipeline.world.driverFolder().size(), 5U) << "the failed one has gone";
}

TEST(PolicyPipeline, AnIdsPolicyIsSureWhenItIsHandedOverAndNoFlushCanBeLeftOut) {
  Pipeline pipeline;
  platform::RecordingFiles& recording = *pipeline.world.recording;
  const size_t begun = recording.flushes();
  const std::string bytes = source("D");
  const STRING plus = pipeline.policy.savePolicyToFile(bytes.data(), bytes.size());
  STRING result;
  ASSERT_TRUE(pipeline.policy.translateHIDSPolicy(plus, result));
  const auto lost = [&] {
    size_t count = 0;
    recording.forEachCrashAfter(
        recording.size(), [&](const std::string&, platform::MemoryFiles& disk) {
          count += disk.content(plus.toUtf8()) != bytes || disk.content(result.toUtf8()) != "ids D";
        });
    return count;
  };
  EXPECT_EQ(lost(), 0U);
  for (size_t flush = begun; flush < begun + 3; ++flush) {
    recording.leaveOutFlush(flush);
    EXPECT_GT(lost(), 0U) << recording.describeFlush(flush);
  }
}

TEST(PolicyPipeline, OldPoliciesGoAndWhatIsInUseOrSomebodyElsesStays) {
  Machine machine = installedMachine();
  const std::string ours = tests::kDriverFolder;
  const std::string former = "/opt/korvane/TRLM/driver/";
  const std::string inDriver = ours + "policy5..conf";
  machine.filterFile = inDriver;
  const std::string kept[] = {inDriver,
                              ours + "policy.txt",
                              ours + "policy7x..conf",
                              ours + "mypolicy7.sbp.zip",
                              ours + "policy1..trans",
                              former + "notes.txt"};
  const std::string gone[] = {ours + "policy7.sbp.zip",   ours + "policy7..conf",
                              ours + "policy1..conf.old", ours + "policy1..trans.tmp",
                              ours + "policy7..err",      ours + "policy.journal.new-0123456789ab",
                              former + "policy3.sbp.zip"};
  for (const std::string& path : kept) machine.files[path] = "x";
  for (const std::string& path : gone) machine.files[path] = "x";
  PolicyWorld world(machine);
  PolicyProcessor(policyPartsOfRun()).RemovePrevHIDSPolicies();
  platform::FileInfo info;
  for (const std::string& path : kept) EXPECT_EQ(world.fake.files.info(path, info), 0) << path;
  for (const std::string& path : gone) EXPECT_EQ(world.fake.files.info(path, info), ENOENT) << path;

  world.fake.files.put("/opt/down/a/b/c.txt", "x");
  world.fake.files.put("/opt/down/d.txt", "x");
  EXPECT_TRUE(PolicyHousekeeping::cleanUpdateDirectory(world.fake.files, "/opt/down"));
  EXPECT_FALSE(PolicyHousekeeping::cleanUpdateDirectory(world.fake.files, "/opt/missing"));
  std::vector<platform::DirectoryEntry> left;
  EXPECT_EQ(world.fake.files.list("/opt/down", left), 0);
  EXPECT_TRUE(left.empty());
}

TEST(PolicyPipeline, ContentIsComparedToTheLastByteInPieces) {
  PolicyWorld world(installedMachine());
  const std::string bytes(64 * 1024, 'x');
  world.fake.files.put("/a", bytes + "y");
  world.fake.files.put("/same", bytes + "y");
  world.fake.files.put("/other", bytes + "z");
  world.fake.files.put("/shorter", bytes);
  EXPECT_TRUE(sameContent(world.fake.files, "/a", "/same"));
  for (const char* other : {"/other", "/shorter", "/missing"})
    EXPECT_FALSE(sameContent(world.fake.files, "/a", other));
  EXPECT_FALSE(sameContent(world.fake.files, "/shorter", "/a"));
}

// Without a journal, agent.ini says what is to be in force.
TEST(PolicyReconcile, ADamagedJournalIsSetAsideAndOnePolicyPutInForce) {
  struct DamageCase {
    const char* what;
    Machine machine;
    std::string expected;
  };
  std::vector<DamageCase> cases;
  Machine machine = installedMachine();
  machine.files[tests::kJournal] = "korvane-policy-change 1\nnew.plus=";
  machine.files["/opt/korvane/IPS/driver/policy2..conf"] = minusOf("B", "1");
  machine.filterFile = "/opt/korvane/IPS/driver/policy2..conf";
  machine.driverPolicy = minusOf("B", "1");
  cases.push_back({"a new policy was loaded", machine, minusOf("A", "1")});
  machine = installedMachine();
  machine.files[tests::kJournal] = std::string(tests::kOldPlus);
  machine.files[std::string(tests::kOldMinus) + ".old"] = minusOf("A", "1");
  machine.files[tests::kOldMinus] = minusOf("A", "2");
  cases.push_back({"a retranslation had come to the driver", machine, minusOf("A", "2")});
  machine.files.erase(tests::kOldMinus);
  cases.push_back({"between two renames", machine, minusOf("A", "1")});
  for (const DamageCase& row : cases) {
    PolicyWorld world(row.machine);
    LoggedEvents events(world.fake.files);
    EXPECT_TRUE(PolicyProcessor(policyPartsOfRun()).reconcile()) << row.what;
    EXPECT_THAT(events.all(), testing::Contains(10596));
    EXPECT_EQ(world.parameter("Filter File"), STRING(tests::kOldMinus)) << row.what;
    EXPECT_EQ(world.driverPolicy(), row.expected) << row.what;
    EXPECT_EQ(world.fake.files.content(tests::kOldMinus), row.expected) << row.what;
    EXPECT_EQ(world.driverFolder().size(), 4U) << row.what << ": three files and the journal aside";
    EXPECT_EQ(AgentConfig::getInstance()->getPolicyErrorCode(), 66);
  }
}

TEST(PolicyReconcile, WhatCannotBeUndoneIsTriedAgain) {
  Machine left;
  {
    Pipeline pipeline;
    pipeline.world.fake.registry.refuseBelow(tests::kDriverKey, 0);
    PolicyChange change("/opt/korvane/IPS/driver/policy2.sbp.zip", policyPartsOfRun());
    ASSERT_TRUE(change.begin());
    left = pipeline.world.afterEnd();
  }
  left.filterFile = "/elsewhere";
  constexpr char kBackup[] = "/opt/korvane/IPS/driver/policy2..conf.old";
  left.files[kBackup] = "what the change goes back to";
  PolicyWorld world(left);
  world.fake.registry.refuseBelow(tests::kDriverKey, 5);
  EXPECT_FALSE(PolicyProcessor(policyPartsOfRun()).reconcile());
  EXPECT_NE(world.fake.files.content(tests::kJournal), "");
  PolicyProcessor(policyPartsOfRun()).RemovePrevHIDSPolicies();
  EXPECT_NE(world.fake.files.content(kBackup), "");
  PolicyProcessor policy(policyPartsOfRun());
  EXPECT_EQ(policy.installPolicy(source("B"), propertiesOf("B")).text,
            STRING("The previous policy change could not be rolled back."));
  world.fake.registry.refuseBelow(tests::kDriverKey, 0);
  EXPECT_TRUE(policy.installPolicy(source("B"), propertiesOf("B")));
  EXPECT_EQ(world.driverPolicy(), minusOf("B", "1"));
}

}  // namespace
}  // namespace korvane
