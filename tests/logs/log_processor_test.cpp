#include "logs/log_processor.h"

#include "logs/file_log_pointer.h"
#include "logs/fixed_format_log.h"
#include "tests/logs/log_fixture.h"

namespace korvane::tests {
namespace {

using testing::ElementsAre;

class LogProcessorTest : public LogFixture {
 protected:
  std::unique_ptr<LogProcessor> make() {
    return std::make_unique<LogProcessor>(HIDS_RT_LOG, parts(),
                                          std::make_unique<FakeDestination>(received));
  }
  static int round(LogProcessor& processor) {
    processor.readRecords();
    return processor.writeRecords();
  }
  int savedOffset() { return FileLogPointer(kPointerFile).getOffset(); }
  STRING savedName() { return FileLogPointer(kPointerFile).getCurrentLogName(); }
  bool exists(const char* path) {
    platform::FileInfo info;
    return fake.files.info(path, info) == 0;
  }

  FakeDestination::Received received;
};

TEST_F(LogProcessorTest, AnOpenSummaryIsSentWhenItsPeriodIsOver) {
  config().setLogConsolidatePeriod(5);
  fake.files.put(kLog, eventLine(1, "x") + eventLine(2, "x"));
  const auto processor = make();
  round(*processor);
  EXPECT_EQ(savedOffset(), static_cast<int>(eventLine(1, "x").size()))
      << "the repeat is not delivered yet";
  fake.clock.advance(5 * 60 * 1000 - 1);
  round(*processor);
  append(kLog, eventLine(3, "x"));
  EXPECT_THAT(received.sequence(), ElementsAre("1"));
  fake.clock.advance(1);
  round(*processor);
  EXPECT_THAT(received.sequence(), ElementsAre("1", "3+2"));
  EXPECT_EQ(savedOffset(), static_cast<int>(fake.files.content(kLog).size()));
}

TEST_F(LogProcessorTest, KeepsBackWhatTheRulesSay) {
  LogRules rules(fake.files, "/opt/korvane/IPS/log.rules");
  ForwardingParts given = parts();
  given.rules = &rules;
  LogProcessor processor(HIDS_RT_LOG, given, std::make_unique<FakeDestination>(received));
  RefusedRule refused;
  int error = 0;
  const auto inForce = [&](const STRING& first, const STRING& second) {
    return rules.replace({{"Log.1", first}, {"Log.2", second}}, refused, error) ==
           LogRules::Outcome::inForce;
  };
  ASSERT_TRUE(inForce("PFIL; v4=x:1", "*; a4=hidslog1rt:0"));
  std::string log = eventLine(1, "x") + eventLine(2) + eventLine(3, "x") +
                    eventLine(4, "x", "TREG") + eventLine(5, "x");
  fake.files.put(kLog, log + eventLine(6, "y"));
  round(processor);
  EXPECT_THAT(received.sequence(), ElementsAre("1")) << "one run, whatever is kept back in between";
  append(kLog, endLine(7));
  processor.readRecords();
  const ForwardingCounts counts = counters.snapshot();
  EXPECT_EQ(counts.read, 3U);
  EXPECT_EQ(counts.keptBack, 3U);
  round(processor);
  EXPECT_THAT(received.sequence(), ElementsAre("1", "5+2"));
  EXPECT_FALSE(exists(kLog)) << "what is kept back does not hold its log up";
  // A long stretch of them is not read again and again, and new rules count with the next pass.
  log.clear();
  for (int i = 10; i < 1010; ++i) log += eventLine(i, "", "TREG");
  fake.files.put(kLog, log);
  setLimits(700, 100);
  round(processor);
  EXPECT_GT(savedOffset(), 0);
  ASSERT_TRUE(inForce("*; a1=other:0", "*; v1=TREG:1"));
  round(processor);
  EXPECT_EQ(received.records().size(), 2U + 100U);
}

// The rules' own comparison of bytes against that of a record's named values.
TEST_F(LogProcessorTest, ARuleIsSatisfiedByWhatARecordMatches) {
  LogRules rules(fake.files, "/opt/korvane/IPS/log.rules");
  std::string longLine = "TREG,2,t2";
  for (int n = 4; n <= 20; ++n) longLine += ",value " + std::to_string(n);
  int satisfied = 0;
  for (std::string line :
       {std::string("PFIL,1,t1,a,\"x,y\""), std::string("PFIL,1,t1,,a:0=1"), longLine})
    for (const std::map<STRING, STRING>& conditions :
         {std::map<STRING, STRING>{},
          {{"v1", "PFIL"}, {"v4", "a"}},
          {{"v4", ""}},
          {{"v5", "x,y"}},
          {{"v5", "a:0=1"}, {"v4", "b"}},
          {{"v20", "value 20"}},
          {{"v21", ""}},
          {{"v2", "2"}, {"v17", "value 17"}},
          {{"a4", "hidslog1rt"}},
          {{"a4", "hidslog"}},
          {{"a1", settings().machine.getHostname()}}}) {
      FixedFormatLog record(HIDS_RT_LOG, settings().machine, fake.clock);
      ASSERT_TRUE(record.parseLog(STRING(line)));
      STRING rule = "*";
      for (const auto& [name, value] : conditions) rule = rule + "; " + name + "=" + value;
      RefusedRule refused;
      int error = 0;
      ASSERT_EQ(rules.replace({{"Log.1", rule + ":0"}}, refused, error),
                LogRules::Outcome::inForce);
      RuleFilter filter(&rules);
      filter.beginPass(settings().machine, "hidslog1rt", 0);
      ByteBuffer text;
      text.append(line);
      text.reserve(1);
      ParsedEvent event;
      ASSERT_EQ(parseEvent(text.data(), text.size(), event), ParseResult::accepted);
      EXPECT_EQ(filter.keepsBack(event), record.matches(conditions))
          << line << " " << rule.toUtf8();
      satisfied += filter.keepsBack(event);
    }
  EXPECT_GT(satisfied, 12);
  EXPECT_LT(satisfied, 24);
}

TEST_F(LogProcessorTest, KeepsToTheLimits) {
  std::string log;
  for (int i = 1; i <= 50; ++i) log += eventLine(i);
  fake.files.put(kLog, log);
  setLimits(9, 100);
  const auto processor = make();
  EXPECT_EQ(processor->readRecords(), 10) << "stops when the count exceeds the limit";
  EXPECT_EQ(processor->readRecords(), 10);
  EXPECT_EQ(processor->writeRecords(), 20);
  setLimits(100, 7);
  EXPECT_EQ(processor->readRecords(), 7) << "stops when the batch is full";
  EXPECT_EQ(processor->readRecords(), 0) << "a full queue reads nothing";
  EXPECT_EQ(processor->queued(), 7u);
}

TEST_F(LogProcessorTest, StopsAtTheByteLimitOfABoundedMessage) {
  received.bounded = true;
  std::string log;
  for (int i = 1; i <= 400; ++i) log += eventLine(i, std::string(10000, 'x') + std::to_string(i));
  fake.files.put(kLog, log);
  setLimits(1000, 1000);
  const int read = make()->readRecords();
  EXPECT_GT(read, 130);
  EXPECT_LT(read, 141);
}

TEST_F(LogProcessorTest, LogsOfOtherTypesAreReadAndNotSent) {
  config().setHIDSLogFile(kLog);
  fake.files.put(kLog, eventLine(1) + eventLine(2));
  LogProcessor processor(HIDS_LOG, parts(), std::make_unique<FakeDestination>(received));
  EXPECT_EQ(processor.readRecords(), 2);
  EXPECT_EQ(processor.queued(), 0u);
}

TEST_F(LogProcessorTest, ManyMarkersSaveThePlace) {
  std::string log;
  for (int i = 0; i < 600; ++i) log += "MSOF,1,t\n";
  fake.files.put(kLog, log);
  setLimits(1000, 100);
  make()->readRecords();
  EXPECT_EQ(savedOffset(), 502 * 9);
}

TEST_F(LogProcessorTest, TheEndMarkNamesTheNextLog) {
  fake.files.put(kLog, eventLine(1) + "MEOF,0,t,rt2.csv\n");
  fake.files.put(kNextLog, eventLine(2) + "MEOF,0,t,gone.csv\n");
  const std::string last = "/opt/korvane/IDS/logs/rt3.csv";
  fake.files.put(last, eventLine(3) + "MEOF,0,t,../logs/rt4.csv\n");
  fake.files.put("/opt/korvane/IDS/logs/rt4.csv", eventLine(4));
  config().setHIDSRTLogFile(kLog);
  const auto processor = make();
  round(*processor);
  config().setHIDSRTLogFile(last);
  for (int i = 0; i < LogReader::kAwaitPasses + 3; ++i) round(*processor);
  EXPECT_THAT(received.sequence(), ElementsAre("1", "2", "3"));
  EXPECT_EQ(events(10554), 1u) << "gone.csv";
  EXPECT_EQ(savedName(), last) << "a path is not a file's name";
}

TEST_F(LogProcessorTest, ANewLogMayHaveTheSameName) {
  fake.files.put(kLog, eventLine(1) + endLine(2));
  const auto processor = make();
  round(*processor);
  EXPECT_FALSE(exists(kLog));
  for (int i = 0; i < 3; ++i) round(*processor);
  EXPECT_EQ(events(10185), 0u) << "a log that is not there yet is not a fault";
  fake.files.put(kLog, eventLine(3) + eventLine(4) + eventLine(5));
  round(*processor);
  EXPECT_THAT(received.sequence(), ElementsAre("1", "3", "4", "5"));
  fake.files.put("/opt/korvane/IDS/logs/new", eventLine(7));
  append(kLog, endLine(6));
  received.answer = [&] {  // the successor takes the name before the finished log is removed
    fake.files.replace("/opt/korvane/IDS/logs/new", kLog);
    return 0;
  };
  append(kLog, "");
  round(*processor);
  round(*processor);
  round(*processor);
  EXPECT_EQ(received.sequence().size(), 4u);
  EXPECT_FALSE(exists(kLog)) << "nothing was queued, so nothing took the name";
}

TEST_F(LogProcessorTest, ASuccessorUnderTheSameNameIsNotRemoved) {
  fake.files.put(kLog, eventLine(1) + endLine(2));
  fake.files.put("/opt/korvane/IDS/logs/new", eventLine(3));
  const auto processor = make();
  processor->readRecords();
  fake.files.replace("/opt/korvane/IDS/logs/new", kLog);
  processor->writeRecords();
  round(*processor);
  EXPECT_THAT(received.sequence(), ElementsAre("1", "3"));
}

TEST_F(LogProcessorTest, LongEventsMakeSmallerBatches) {
  constexpr int kEvents = 150;
  constexpr size_t kLong = 60000;
  std::string log;
  for (int i = 1; i <= kEvents; ++i)
    log += eventLine(i, std::string(kLong, 'x') + std::to_string(i));
  fake.files.put(kLog, log);
  config().setMaxMessagesToRead(1000);
  config().setMaxBatchSize(1000);
  const auto processor = make();
  for (int i = 0; i < 5; ++i) round(*processor);
  EXPECT_EQ(received.records().size(), static_cast<size_t>(kEvents));
  for (const auto& batch : received.batches)
    EXPECT_LE(batch.size(), LogProcessor::kQueueTextBytes / kLong + 1);
}

TEST_F(LogProcessorTest, KeepsALogAsideWhereNoneIsToBeDeleted) {
  settings().logs.setDeleteLogs(false);
  for (size_t kept = 1; kept <= 2; ++kept) {
    fake.files.put(kLog, eventLine(static_cast<int>(kept)) + endLine(9));
    const auto processor = make();
    for (int i = 0; i < 3; ++i) round(*processor);
    round(*make());
    EXPECT_EQ(received.records().size(), kept);
    EXPECT_FALSE(exists(kLog));
    EXPECT_TRUE(exists((std::string(kLog) + (kept == 1 ? ".sent" : ".sent.2")).c_str()));
  }
  EXPECT_EQ(events(10135), 0u);
}

TEST_F(LogProcessorTest, RenamesALogThatCannotBeRemoved) {
  using platform::FileOperation;
  shutdownToken().request();  // ends the pause between the tries
  for (const bool renameToo : {false, true}) {
    fake.files.put(kLog, eventLine(1) + endLine(2));
    fake.files.remove(kPointerFile);
    files.failAll(FileOperation::remove, EBUSY, "rt.csv");
    if (renameToo) files.failAll(FileOperation::rename, EBUSY, "rt.csv");
    shutdownToken().reset();
    const auto processor = make();
    processor->readRecords();
    shutdownToken().request();
    processor->writeRecords();
    shutdownToken().reset();
    EXPECT_EQ(exists(kLog), renameToo);
    EXPECT_TRUE(exists("/opt/korvane/IDS/logs/rt.csv.sent"));
    const size_t sent = received.records().size();
    for (int i = 0; i < 3; ++i) round(*processor);
    round(*make());
    EXPECT_EQ(received.records().size(), sent) << "it is not read again";
    files.heal();
  }
  EXPECT_EQ(inOwnLog("Error removing file /opt/korvane/IDS/logs/rt.csv. Error code : " +
                     std::to_string(EBUSY)),
            4u);
  EXPECT_EQ(inOwnLog(": (2nd Try) Error removing file "), 2u);
}

TEST_F(LogProcessorTest, AFinishedLogThatStaysIsNotReadAgain) {
  fake.files.put(kLog, eventLine(1) + "MEOF,0,t,rt2.csv\n");
  fake.files.put(kNextLog, eventLine(2));
  for (const auto operation : {platform::FileOperation::remove, platform::FileOperation::rename})
    files.failAll(operation, EBUSY, "rt.csv");
  const auto processor = make();
  StopToken stopped;
  stopped.request();  // ends the pause between the tries
  processor->setStopToken(stopped);
  for (int i = 0; i < 3 * LogReader::kPatience; ++i) round(*processor);
  EXPECT_EQ(savedName(), kNextLog);
  EXPECT_THAT(received.sequence(), ElementsAre("1", "2"));
}

}  // namespace
}  // namespace korvane::tests
