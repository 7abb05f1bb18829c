// What the pipeline writes down: the journal of a change and the history.
#include <gtest/gtest.h>

#include <cstdio>
#include <set>

#include "tests/policy/policy_world.h"
#include "update/policy/policy_history.h"
#include "update/policy/policy_journal.h"

namespace korvane {
namespace {

constexpr char kHistory[] = "/opt/korvane/IPS/history/history_ips.csv";
constexpr char kAside[] = "/opt/korvane/IPS/history/history_ips.1.csv";

PolicyJournal someJournal() {
  PolicyJournal journal;
  journal.newPlusFile = "C:\\IPS\\driver\\policy2.sbp.zip";
  journal.path = "100% of\na line\x7f";
  journal.version = "W\xc3\xa4 3.2";
  journal.useBuiltIn = true;
  journal.driver.filterFile = "C:\\IPS\\driver\\policy1..conf";
  journal.hadItems = true;
  return journal;
}

TEST(PolicyJournal, ReadsBackWhatWasWrittenAndNothingElse) {
  const std::string text = policyJournalText(someJournal());
  PolicyJournal read;
  ASSERT_TRUE(parsePolicyJournal(text, read));
  EXPECT_EQ(read, someJournal());
  const PolicyJournal before = read;
  for (size_t at = 0; at < text.size(); ++at) {
    EXPECT_FALSE(parsePolicyJournal(text.substr(0, at), read)) << at;
    std::string changed = text;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    EXPECT_FALSE(parsePolicyJournal(changed, read)) << at;
  }
  EXPECT_FALSE(parsePolicyJournal(text + "\n", read));
  EXPECT_EQ(read, before);
}

HistoryRecord someRecord() {
  HistoryRecord record;
  record.time = "2026-11-21 10:15:30.123";
  record.plusFile = "C:\\policy \"2\", new";
  record.name = " W\xc3\xa4 ";
  record.resultCode = -3;
  record.errorText = "one, two";
  record.durationMs = 12345678901;
  return record;
}

TEST(PolicyHistory, ARecordIsOneLineThatReadsBack) {
  const std::string line = historyLine(someRecord());
  HistoryRecord read;
  ASSERT_TRUE(parseHistoryLine(line, read)) << line;
  EXPECT_EQ(read, someRecord());
  HistoryRecord wild = someRecord();
  wild.errorText = STRING("a\r\nb\tc") + std::string(10000, 'x');
  const std::string tame = historyLine(wild);
  EXPECT_EQ(tame.find('\n'), tame.size() - 1);
  EXPECT_EQ(tame.find('\r'), std::string::npos);
  EXPECT_LT(tame.size(), PolicyHistory::kMaxErrorUnits + 200);
  for (const std::string& bad :
       {std::string(), line.substr(0, line.size() - 1), line.substr(0, 20) + "\n",
        std::string("time,plus file,policy name,version,result code,error "
                    "text,minus file,items file,duration ms\n")})
    EXPECT_FALSE(parseHistoryLine(bad, read)) << bad;
}

TEST(PolicyHistory, GrowsToItsBoundTwice) {
  tests::PolicyWorld world(tests::installedMachine());
  PolicyHistory history(*world.files);
  ASSERT_TRUE(history.initialize());
  HistoryRecord record = someRecord();
  record.errorText = std::string(4000, 'e');
  for (int i = 0; i < 800; ++i) history.add(PolicyHistory::ips, record);
  const std::string now = world.fake.files.content(kHistory);
  EXPECT_LE(now.size(), PolicyHistory::kMaxHistoryBytes);
  EXPECT_TRUE(now.starts_with("time,plus file,")) << now.substr(0, 80);
  const std::string aside = world.fake.files.content(kAside);
  EXPECT_LE(aside.size(), PolicyHistory::kMaxHistoryBytes);
  EXPECT_GT(aside.size(), PolicyHistory::kMaxHistoryBytes / 2);
}

TEST(PolicyHistory, WhatWasAddedSurvivesEveryCrashAndNoFlushCanBeLeftOut) {
  tests::PolicyWorld world(tests::installedMachine());
  platform::RecordingFiles& recording = *world.recording;
  PolicyHistory history(*world.files);
  ASSERT_TRUE(history.initialize());
  std::vector<size_t> sureAt;  // the recording's length when each record had been added
  HistoryRecord record = someRecord();
  for (record.durationMs = 1000; record.durationMs < 1003; ++record.durationMs) {
    history.add(PolicyHistory::ips, record);
    sureAt.push_back(recording.size());
  }
  size_t states = 0;
  const auto lost = [&] {
    size_t count = 0;
    for (size_t entries = 0; entries <= recording.size(); ++entries)
      recording.forEachCrashAfter(entries, [&](const std::string&, platform::MemoryFiles& disk) {
        ++states;
        const std::string now = disk.content(kHistory);
        for (size_t i = 0; i < sureAt.size(); ++i)
          count += sureAt[i] <= entries &&
                   now.find("\"100" + std::to_string(i) + "\"\n") == std::string::npos;
      });
    return count;
  };
  EXPECT_EQ(lost(), 0U);
  std::printf("%zu states of a history\n", states);
  std::set<std::string> missed;
  for (size_t flush = 0; flush < recording.flushes(); ++flush) {
    recording.leaveOutFlush(flush);
    if (lost() > 0) missed.insert(recording.describeFlush(flush));
  }
  EXPECT_TRUE(missed.contains("flush " + std::string(kHistory)));
}

// A full file is set aside, surely before another takes its place.
TEST(PolicyHistory, ACrashLosesNoFullFile) {
  tests::Machine machine = tests::installedMachine();
  machine.files[kHistory] = std::string(PolicyHistory::kMaxHistoryBytes - 50, 'x') + "\n";
  tests::PolicyWorld world(machine);
  platform::RecordingFiles& recording = *world.recording;
  PolicyHistory history(*world.files);
  ASSERT_TRUE(history.initialize());
  const size_t begun = recording.size();
  const size_t flush = recording.flushes();
  history.add(PolicyHistory::ips, someRecord());
  for (const bool left : {false, true}) {
    recording.leaveOutFlush(left ? flush : platform::RecordingFiles::kNoFlush);
    bool lost = false;
    for (size_t entries = begun; entries <= recording.size(); ++entries)
      for (const platform::NameLoss names : platform::kNameLosses) {
        platform::ManualClock clock;
        platform::MemoryFiles disk(clock);
        recording.crash(entries, platform::DataLoss::none, names, disk);
        lost = lost || (disk.content(kHistory).substr(0, 3) != "xxx" &&
                        disk.content(kAside).substr(0, 3) != "xxx");
      }
    EXPECT_EQ(lost, left) << recording.describeFlush(flush);
  }
}

TEST(PolicyHistory, ACutLineEndsWhereItWasCut) {
  tests::PolicyWorld world(tests::installedMachine());
  PolicyHistory history(*world.files);
  ASSERT_TRUE(history.initialize());
  history.add(PolicyHistory::ips, someRecord());
  const std::string whole = world.fake.files.content(kHistory);
  world.fake.files.put(kHistory, whole.substr(0, whole.size() - 10));
  history.add(PolicyHistory::ips, someRecord());
  EXPECT_EQ(world.fake.files.content(kHistory),
            whole.substr(0, whole.size() - 10) + "\n" + historyLine(someRecord()));
}

TEST(PolicyHistory, SwitchesItselfOffAndCostsNoPolicy) {
  for (const bool atStart : {true, false}) {
    tests::PolicyWorld world(tests::installedMachine());
    PolicyProcessor policy(policyPartsOfRun());
    if (atStart) world.fake.files.put("/opt/korvane/IPS/history", "a file in the way");
    EXPECT_EQ(policy.InitializePloicyHistory(), !atStart);
    if (!atStart) {
      world.fake.files.remove(kHistory);
      world.fake.files.makeDirectories(std::string(kHistory));
    }
    EXPECT_TRUE(policy.installPolicy(tests::source("B"), tests::propertiesOf("B")));
    EXPECT_EQ(world.driverPolicy(), tests::minusOf("B", "1"));
    EXPECT_EQ(world.fake.files.content(kHistory), "");
  }
}

}  // namespace
}  // namespace korvane
