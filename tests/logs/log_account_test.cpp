// Whatever happens to a log, its account closes: what was written is delivered, waits or is entered
// as lost, counted over kills at the worst moments.
#include <cerrno>

#include "logs/log_processor.h"
#include "tests/logs/log_fixture.h"
#include "util/errors.h"

namespace korvane::tests {
namespace {

using platform::FileOperation;

constexpr char kLedger[] = "/opt/korvane/IPS/lossledger";

class LogAccountTest : public LogFixture {
 protected:
  LogAccountTest() { setLimits(100, 5); }

  // The process is gone, and another one begins.
  void restart() {
    agent.reset();
    ledger.emplace(files, fake.clock);
    ledger->open(kLedger);
    agent = std::make_unique<LogProcessor>(HIDS_RT_LOG, parts(),
                                           std::make_unique<FakeDestination>(received));
  }
  void rounds(int number) {
    for (; number > 0; --number) {
      if (!agent) restart();
      try {
        agent->readRecords();
        const int written = agent->writeRecords();
        (void)written;
      } catch (const AgentError&) {
        restart();
      }
      EXPECT_TRUE(account().closed());
    }
  }
  StreamAccount account() const {
    const LedgerView view = ledger->view();
    return view.accounts.empty() ? StreamAccount() : view.accounts.front();
  }
  LossSum lost(LossCause cause) const { return ledger->view().totals[static_cast<size_t>(cause)]; }
  // Of the agent as it runs, and of one that begins where this one is killed.
  void expectBooks(uint64_t read, uint64_t delivered, uint64_t ledgered, uint64_t uncounted = 0) {
    for (const char* when : {"running", "killed"}) {
      SCOPED_TRACE(when);
      const StreamAccount books = account();
      EXPECT_TRUE(books.closed());
      EXPECT_EQ(books.read, read);
      EXPECT_EQ(books.delivered, delivered);
      EXPECT_EQ(books.ledgered, ledgered);
      EXPECT_EQ(books.uncounted, uncounted);
      restart();
    }
  }
  static std::string lines(int first, int last) {
    std::string text;
    for (int i = first; i <= last; ++i) text += eventLine(i);
    return text;
  }

  FakeDestination::Received received;
  std::unique_ptr<LogProcessor> agent;
};

TEST_F(LogAccountTest, LinesAreCountedOnceWhateverIsKilled) {
  config().setLogConsolidatePeriod(5);
  const std::string longLine = eventLine(50, std::string(kLineLimit, 'x'));
  const std::string log = lines(1, 3) + "no event\n\n" + lines(4, 6) + "XXXX,9\nneither\n" +
                          eventLine(7, "same") + "no\n" + eventLine(8, "same") + "nor\n" +
                          eventLine(9, "same") + longLine + eventLine(51) + "PFIL" +
                          std::string(60, ',') + "\n";
  // With a kill behind the n-th batch that arrives, before anything of it is saved.
  for (int killed = 0; killed < 8; ++killed) {
    SCOPED_TRACE(killed);
    for (const char* path : {kLedger, kPointerFile}) (void)fake.files.remove(path);
    restart();
    fake.files.put(kLog, log);
    received.answer = [&, batch = 0]() mutable {
      if (++batch == killed) files.failNth(FileOperation::write, 1, EIO, "filepointer");
      return batch == 2 ? 302 : batch == 3 ? 600 : 0;
    };
    rounds(20);
    fake.clock.advance(6 * 60 * 1000);
    rounds(3);
    const StreamAccount books = account();
    EXPECT_EQ(lost(LossCause::lineRejected).lines, 6u);
    EXPECT_EQ(lost(LossCause::lineTooLong).lines, 1u);
    const uint64_t dropped =
        lost(LossCause::serverDropped).lines + lost(LossCause::serverRejected).lines;
    EXPECT_EQ(books.delivered + dropped, 11u);
    expectBooks(17, books.delivered, 6 + dropped);
  }
}

TEST_F(LogAccountTest, TheEntrySaysWhichBytesWereLost) {
  fake.files.put(kLog, lines(1, 2) + "no event\n" + lines(3, 4));
  rounds(1);
  const LedgerView view = ledger->view();
  ASSERT_EQ(view.entries.size(), 1u);
  const LedgerEntry& entry = view.entries[0];
  EXPECT_EQ(entry.log, kLog);
  EXPECT_EQ(entry.stream, "hidslog1rt");
  EXPECT_EQ(entry.first.position, lines(1, 2).size());
  EXPECT_EQ(entry.last.position, lines(1, 2).size() + 9);
  EXPECT_EQ(entry.first.wallMs, fake.clock.wallMs());
  // Without a loss nothing is written to the ledger and nothing is flushed.
  const int flushes = files.count(FileOperation::flush);
  append(kLog, lines(5, 20));
  rounds(5);
  EXPECT_EQ(files.count(FileOperation::flush), flushes);
}

TEST_F(LogAccountTest, AFullDiskAndAFolderThatMayNotBeWrittenTakeNoCount) {
  for (const auto operation : {FileOperation::write, FileOperation::open, FileOperation::flush}) {
    for (const char* path : {kLedger, kPointerFile}) (void)fake.files.remove(path);
    restart();
    files.failAll(operation, operation == FileOperation::open ? EROFS : ENOSPC, "lossledger");
    fake.files.put(kLog, lines(1, 3) + "no event\n" + lines(4, 5));
    restart();
    rounds(3);
    const size_t told = events(10731);
    append(kLog, "nor this\n" + eventLine(6));
    rounds(3);
    EXPECT_EQ(events(10731), told) << "once";
    EXPECT_GE(told, 1u);
    expectBooks(8, 6, 2);
    files.heal();
    append(kLog, "nor that\n");
    rounds(3);
    append(kLog, eventLine(7));
    rounds(3);
    expectBooks(10, 7, 3);
  }
}

TEST_F(LogAccountTest, WhatMayNotBeReadWaits) {
  fake.files.put(kLog, lines(1, 4));
  fake.files.put(kNextLog, lines(5, 6));
  rounds(2);
  append(kLog, lines(7, 9));
  files.failAll(FileOperation::open, EACCES, "/rt.csv");
  config().setHIDSRTLogFile(kNextLog);
  restart();
  rounds(30);
  EXPECT_EQ(account().read, 4u) << "the next log does not go before it";
  files.heal();
  rounds(30);
  expectBooks(9, 9, 0);
}

TEST_F(LogAccountTest, ALogThatIsDeletedOrReplacedUnderTheAgentIsReadToItsEnd) {
  fake.files.put(kLog, lines(1, 4));
  rounds(1);
  append(kLog, lines(5, 8) + "no event\n");
  ASSERT_EQ(fake.files.remove(kLog), 0);
  fake.files.put(kLog, lines(9, 12));
  fake.clock.setWall(1);
  rounds(20);
  expectBooks(13, 12, 1);
  append(kLog, lines(13, 14));
  rounds(3);
  expectBooks(15, 14, 1);
}

// What nobody can count is said, with the place.
TEST_F(LogAccountTest, ALogThatIsGoneOrAnotherOneAfterARestartIsAnUncountedLoss) {
  const uint64_t read = lines(1, 4).size();
  const auto expectLoss = [&](LossCause cause, uint64_t from, int event) {
    ASSERT_EQ(lost(cause).uncounted, 1u);
    const LedgerView view = ledger->view();
    EXPECT_EQ(view.entries.back().first.position, from);
    EXPECT_EQ(view.entries.back().log, kLog);
    EXPECT_EQ(inOwnLog("," + std::to_string(event) + ","), 1u);
  };
  fake.files.put(kLog, lines(1, 4));
  rounds(2);
  // Longer than the place, and another file.
  fake.files.put(kLog, lines(21, 40));
  restart();
  rounds(9);
  expectLoss(LossCause::logReplaced, read, 10734);
  expectBooks(24, 24, 0, 1);
  // Gone, and the next one is known.
  rounds(1);
  ASSERT_EQ(fake.files.remove(kLog), 0);
  fake.files.put(kNextLog, lines(41, 42));
  config().setHIDSRTLogFile(kNextLog);
  restart();
  rounds(3);
  expectLoss(LossCause::logGone, lines(21, 40).size(), 10733);
  expectBooks(26, 26, 0, 2);
}

TEST_F(LogAccountTest, ALogThatIsShortenedIsReadAgainAndSaidToHaveLost) {
  fake.files.put(kLog, lines(1, 4));
  rounds(1);
  std::unique_ptr<platform::File> shortened;
  ASSERT_EQ(fake.files.open(kLog, platform::OpenMode::create, shortened), 0);
  append(kLog, lines(5, 5));
  rounds(3);
  EXPECT_EQ(lost(LossCause::logReplaced).uncounted, 1u);
  expectBooks(5, 5, 0, 1);
}

TEST_F(LogAccountTest, ALogThatNeverAppearedIsAGapUntilItDoes) {
  constexpr char kMissing[] = "/opt/korvane/IDS/logs/missing.csv";
  fake.files.put(kLog, lines(1, 2) + endLine(3));
  rounds(1);
  config().setHIDSRTLogFile(kMissing);
  rounds(1);
  config().setHIDSRTLogFile(kNextLog);
  fake.files.put(kNextLog, lines(4, 5));
  rounds(20);
  EXPECT_EQ(lost(LossCause::logGap).uncounted, 1u);
  expectBooks(4, 4, 0, 1);
  fake.files.put(kMissing, lines(6, 8));
  rounds(20);
  EXPECT_EQ(lost(LossCause::logGap).uncounted, 0u);
  expectBooks(7, 7, 0);
}

}  // namespace
}  // namespace korvane::tests
