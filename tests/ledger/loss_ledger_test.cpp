// The ledger file, and that a loss counts exactly when the pointer has gone past it.
#include "ledger/loss_ledger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <numeric>

#include "ledger/ledger_report.h"
#include "platform/fake/fake_platform.h"
#include "platform/fake/faulty_files.h"
#include "platform/fake/recording_files.h"
#include "platform/paths.h"

namespace korvane::tests {
namespace {

constexpr char kPath[] = "/opt/korvane/IPS/lossledger";
constexpr char kStream[] = "hidslog1rt";

Loss lineLoss(uint64_t at, const std::string& log = "/a.csv",
              LossCause cause = LossCause::lineRejected) {
  return {kStream, log, cause, 1, true, {at, 100}, {at + 10, 100}, 7};
}

Loss fileLoss(const std::string& log, uint64_t bytes) {
  return {"", log, LossCause::diskLimit, 1, false, {0, 100}, {bytes, 100}, 7};
}

class LossLedgerTest : public testing::Test {
 protected:
  LossLedgerTest() { fake.files.makeDirectories("/opt/korvane/IPS"); }

  // The agent starts anew on a disk.
  std::unique_ptr<LossLedger> start(platform::Files& files) {
    auto ledger = std::make_unique<LossLedger>(files, fake.clock);
    ledger->open(kPath);
    return ledger;
  }
  std::unique_ptr<LossLedger> start() { return start(fake.files); }
  static uint64_t lines(const LossLedger& ledger) { return linesLost(ledger.view().totals); }

  platform::FakePlatform fake;
  platform::CurrentPlatform current{fake.platform()};
};

TEST_F(LossLedgerTest, ALossCountsExactlyWhenThePointerHasGonePastIt) {
  StreamState saved, state;
  {
    const auto ledger = start();
    state = ledger->resume(kStream, {});
    ledger->settle(kStream, std::vector{lineLoss(10), lineLoss(20)}, state);
    saved = state;
    ledger->settle(kStream, std::vector{lineLoss(30)}, state);
  }
  EXPECT_EQ(state.number, 2u);
  for (int starts = 0; starts < 3; ++starts) {
    EXPECT_EQ(start()->resume(kStream, state).lost, state.lost) << "killed behind the pointer";
  }
  for (int starts = 0; starts < 3; ++starts) {
    const auto ledger = start();
    EXPECT_EQ(ledger->resume(kStream, saved), saved) << "killed before it: the third is taken back";
    EXPECT_EQ(lines(*ledger), 2u);
  }
  const auto ledger = start();
  state = ledger->resume(kStream, saved);
  ledger->settle(kStream, std::vector{lineLoss(30)}, state);
  EXPECT_EQ(lines(*ledger), 3u) << "found again, it is entered once";
  EXPECT_GT(state.number, 2u);
  EXPECT_EQ(start()->resume(kStream, state).lost, state.lost);
}

TEST_F(LossLedgerTest, WhatThePointerAloneKnowsIsMadeUpFor) {
  platform::FaultyFiles files(fake.files);
  StreamState state;
  {
    const auto ledger = start(files);
    state = ledger->resume(kStream, {});
    files.failAll(platform::FileOperation::write, ENOSPC, "lossledger");
    ledger->settle(kStream, std::vector{lineLoss(1), lineLoss(9, "/b", LossCause::serverDropped)},
                   state);
    EXPECT_FALSE(ledger->record(fileLoss("/x.log", 5)));
    EXPECT_EQ(ledger->view().entries.size(), 3u) << "shown all the same";
  }
  const auto ledger = start();
  EXPECT_EQ(ledger->resume(kStream, state).lost, state.lost);
  const LedgerView view = ledger->view();
  ASSERT_EQ(view.entries.size(), 2u);
  EXPECT_EQ(view.entries[0].log, "");
  // A pointer that knows of less than the ledger: the account is opened anew, and closes.
  StreamState older = state;
  older.lost = {};
  older.read = older.delivered = 40;
  const StreamState anew = ledger->resume(kStream, older);
  EXPECT_EQ(anew.read, 2u);
  EXPECT_EQ(anew.delivered, 0u);
}

TEST_F(LossLedgerTest, WhatCouldNotBeWrittenGoesWithTheNextWrite) {
  platform::FaultyFiles files(fake.files);
  files.failAll(platform::FileOperation::open, EACCES, "lossledger");
  {
    const auto ledger = start(files);
    EXPECT_FALSE(ledger->record(fileLoss("/x.log", 5)));
    files.heal();
    EXPECT_TRUE(ledger->record(fileLoss("/x.log", 5))) << "nothing new, but not on the disk yet";
  }
  EXPECT_EQ(start()->view().entries.size(), 1u);
  EXPECT_EQ(fake.files.content(kPath).size(), LossLedger::kFileBytes);
}

TEST_F(LossLedgerTest, ARecordOfTheSameFileAndRangeCountsOnce) {
  for (int kills = 0; kills < 3; ++kills) EXPECT_TRUE(start()->record(fileLoss("/x.log", 5)));
  const auto ledger = start();
  Loss another = fileLoss("/x.log", 5);
  another.identity = 8;
  ledger->record(std::vector{fileLoss("/x.log", 6), another});
  EXPECT_EQ(uncountedLosses(ledger->view().totals), 3u);
  Loss missing = fileLoss("/m.csv", 0);
  missing.cause = LossCause::logGap;
  ledger->record(missing);
  ledger->withdraw("/m.csv", LossCause::diskLimit);
  EXPECT_EQ(start()->view().entries.size(), 4u);
  ledger->withdraw("/m.csv", LossCause::logGap);
  EXPECT_EQ(start()->view().entries.size(), 3u);
}

TEST_F(LossLedgerTest, IsBoundedAndItsSumsStayExact) {
  const auto ledger = start();
  StreamState state = ledger->resume(kStream, {});
  const std::string path(2000, 'x');
  uint64_t all = 0;
  for (int i = 0; i < 60; ++i) {
    std::vector<Loss> losses;
    for (int k = 0; k < 30; ++k, ++all)
      losses.push_back(lineLoss(all * 10, path + std::to_string(i % 7),
                                k % 2 ? LossCause::lineRejected : LossCause::serverRejected));
    ledger->settle(kStream, losses, state);
    ledger->record(fileLoss(path + std::to_string(i), 5));
    EXPECT_LE(ledger->view().entries.size(), LossLedger::kMaxEntries);
    ASSERT_EQ(lines(*ledger), all);
  }
  // What may be taken back has not been merged with what may not.
  const StreamState before = state;
  std::vector<Loss> later;
  for (int i = 0; i < 40; ++i) later.push_back(lineLoss(1, "/later" + std::to_string(i)));
  ledger->settle(kStream, later, state);
  EXPECT_LE(ledger->view().entries.size(), LossLedger::kMaxEntries);
  EXPECT_EQ(start()->resume(kStream, state).lost, state.lost);
  const auto again = start();
  EXPECT_EQ(again->resume(kStream, before).lost, before.lost);
  EXPECT_EQ(uncountedLosses(again->view().totals), 60u);
  EXPECT_EQ(fake.files.content(kPath).size(), LossLedger::kFileBytes);
  // Of one log the range stays; the newest are the last to merge.
  EXPECT_EQ(again->view().entries.back().log, ledgerLogName(path + "59"));
}

// The machine loses power at any moment of a work that settles, moves a pointer and records files
// before it removes them.
TEST_F(LossLedgerTest, EveryStateThatAPowerCutLeavesHasEachLossOnce) {
  constexpr char kPointer[] = "/opt/korvane/IPS/pointer";
  constexpr int kSteps = 4;
  const auto removed = [](int step) { return "/opt/korvane/IPS/rolled" + std::to_string(step); };
  for (int step = 0; step < kSteps; ++step) fake.files.put(removed(step), "x");
  platform::RecordingFiles recording(fake.files);
  // The pointer: the number and the lines lost, which are as many, in one small write.
  const auto saved = [&](platform::Files& disk) -> std::optional<StreamState> {
    std::unique_ptr<platform::File> file;
    char text[17] = {};
    size_t got = 0;
    unsigned number = 0, lost = 0;
    if (disk.open(kPointer, platform::OpenMode::read, file) != 0 ||
        file->read(text, 16, got) != 0 || std::sscanf(text, "%7u %8u", &number, &lost) != 2 ||
        number != lost)  // torn
      return {};
    StreamState state;
    state.number = number;
    state.read = lost;
    state.lost[static_cast<size_t>(LossCause::lineRejected)].lines = lost;
    return state;
  };
  {
    const auto ledger = start(recording);
    StreamState state = ledger->resume(kStream, {});
    std::unique_ptr<platform::File> pointer;
    ASSERT_EQ(recording.open(kPointer, platform::OpenMode::createNew, pointer), 0);
    for (uint64_t step = 0; step < kSteps; ++step) {
      ledger->settle(kStream, std::vector{lineLoss(step * 10)}, state);
      char text[32];
      std::snprintf(text, sizeof text, "%7u %8u", static_cast<unsigned>(state.number),
                    static_cast<unsigned>(linesLost(state.lost)));
      ASSERT_EQ(pointer->seek(0), 0);
      ASSERT_EQ(pointer->write(text, 16), 0);
      ASSERT_EQ(pointer->flush(), 0);
      ASSERT_EQ(recording.flushDirectory("/opt/korvane/IPS"), 0);
      ledger->record(fileLoss(removed(static_cast<int>(step)), 1));
      ASSERT_EQ(recording.remove(removed(static_cast<int>(step))), 0);
    }
  }
  const auto states = [&](size_t& wrong) {
    size_t count = 0;
    recording.forEachCrash([&](const std::string&, platform::MemoryFiles& disk) {
      ++count;
      const auto state = saved(disk);
      const auto ledger = start(disk);
      const uint64_t known = state ? linesLost(state->lost) : 0;
      uint64_t detailed = 0;
      if (state) {
        wrong += linesLost(ledger->resume(kStream, state).lost) != known;
        // With log and position, too.
        for (const LedgerEntry& entry : ledger->view().entries)
          if (entry.counted && !entry.log.empty()) detailed += entry.count;
        wrong += detailed != known;
      }
      for (int step = 0; step < kSteps; ++step) {
        const auto entries = ledger->view().entries;
        const bool entered = std::any_of(entries.begin(), entries.end(), [&](const auto& entry) {
          return entry.log == removed(step);
        });
        if (!platform::fileExists(disk, removed(step)) && !entered) ++wrong;
      }
    });
    return count;
  };
  size_t wrong = 0;
  std::printf("%zu states of a ledger beside its pointer\n", states(wrong));
  EXPECT_EQ(wrong, 0u);
  std::map<std::string, bool> missed;
  for (size_t flush = 0; flush < recording.flushes(); ++flush) {
    const std::string name = recording.describeFlush(flush);
    if (name.find("lossledger") == std::string::npos) continue;
    recording.leaveOutFlush(flush);
    wrong = 0;
    states(wrong);
    missed[name] = missed[name] || wrong > 0;
  }
  recording.leaveOutFlush(platform::RecordingFiles::kNoFlush);
  EXPECT_FALSE(missed.empty());
  for (const auto& [flush, known] : missed) EXPECT_TRUE(known) << flush;
}

TEST_F(LossLedgerTest, TheFileIsAsItsPageSays) {
  LedgerContent content{7, {{kStream, 3}}, {}};
  LedgerEntry& rejected = content.entries.emplace_back();
  static_cast<Loss&>(rejected) = {
      kStream, "/opt/korvane/IDS/logs/0.csv", LossCause::lineRejected, 2,
      true,    {4711, 1795429530123},         {4830, 1795429530124},   1835021};
  LedgerEntry& limit = content.entries.emplace_back();
  static_cast<Loss&>(limit) = {
      "",    "/opt/korvane/logs/a b.log", LossCause::diskLimit,     1,
      false, {0, 1795429531000},          {1048576, 1795429531000}, 1835044};
  const std::string text = ledgerText(content);
  EXPECT_EQ(text.substr(0, text.rfind("end ")),
            "korvane-ledger 1\ngeneration 7\nstream 3 hidslog1rt\n"
            "loss hidslog1rt line-rejected counted 2 1 0 1835021 4711 4830 1795429530123 "
            "1795429530124 /opt/korvane/IDS/logs/0.csv\n"
            "loss - disk-limit uncounted 1 1 0 1835044 0 1048576 1795429531000 1795429531000 "
            "/opt/korvane/logs/a b.log\n");
  LedgerContent read;
  EXPECT_EQ(parseLedger(text + std::string(100, '\0'), read), nullptr);
  EXPECT_EQ(read, content);
  for (const auto& [from, to] : {std::pair("ledger 1", "ledger 2"),
                                 {"counted 2", "counted x"},
                                 {"line-rejected", "line-forgotten"},
                                 {" 2 1 0", " 2 0 0"},
                                 {"stream 3 hidslog1rt", "stream 3 "},
                                 {"loss -", "gain -"}}) {
    std::string damaged = text;
    damaged.replace(damaged.find(from), std::string_view(from).size(), to);
    EXPECT_NE(parseLedger(damaged, read), nullptr) << "its hash does not fit";
    EXPECT_NE(parseLedger(sealedLedger(damaged), read), nullptr) << to;
  }
  // A file of which nothing can be used is begun anew.
  fake.files.put(kPath, "korvane-ledger 1\nnonsense\n");
  EXPECT_TRUE(start()->record(fileLoss("/x.log", 5)));
  EXPECT_EQ(start()->view().entries.size(), 1u);
}

TEST_F(LossLedgerTest, TheServerIsToldAsThePageSays) {
  const auto ledger = start();
  EXPECT_TRUE(ledgerProperties(ledger->view()).empty());
  StreamState state = ledger->resume(kStream, {});
  ledger->publish(kStream, state, 0);
  EXPECT_TRUE(ledgerProperties(ledger->view()).empty()) << "nothing read, nothing lost";
  const uint64_t before = ledger->view().revision;
  ledger->publish(kStream, state, 0);
  EXPECT_EQ(ledger->view().revision, before);
  ledger->settle(kStream, std::vector{lineLoss(4711)}, state);
  state.read = 6;
  state.delivered = 3;
  ledger->publish(kStream, state, 2);
  EXPECT_NE(ledger->view().revision, before);
  EXPECT_TRUE(ledger->view().accounts[0].closed());
  ledger->record(fileLoss("/var/a b.log", 9));
  std::string text;
  for (const auto& [name, value] : ledgerProperties(ledger->view()))
    text += name.toUtf8() + "=" + value.toUtf8() + "\n";
  EXPECT_THAT(text, testing::MatchesRegex(
                        "ledger.accounts=1\n"
                        "ledger.account.1=hidslog1rt 2\\S*Z 6 3 2 1 0\n"
                        "ledger.entries=2\n"
                        "ledger.entry.1=hidslog1rt line-rejected counted 1 1 4711 4721 "
                        "1970-01-01T00:00:00.100Z 1970-01-01T00:00:00.100Z /a.csv\n"
                        "ledger.entry.2=- disk-limit uncounted 1 1 0 9 1970-01-01T00:00:00.100Z "
                        "1970-01-01T00:00:00.100Z /var/a b.log\n"));
}

}  // namespace
}  // namespace korvane::tests
