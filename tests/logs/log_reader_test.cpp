#include "logs/log_reader.h"

#include "tests/logs/log_fixture.h"

namespace korvane::tests {
namespace {

class LogReaderTest : public LogFixture {
 protected:
  // The sequence numbers of the records that a pass yields.
  static std::string pass(LogReader& reader) {
    std::string numbers;
    for (ParsedEvent record; reader.next(record);) numbers += std::string(record.field(2)) + " ";
    return numbers;
  }
};

TEST_F(LogReaderTest, ReadsAnUnfinishedLineAgainUntilItEnds) {
  fake.files.put(kLog, eventLine(1) + "PFIL,2,t2,ha");
  LogReader reader(HIDS_RT_LOG);
  EXPECT_EQ(pass(reader), "1 ");
  for (int i = 0; i < LogReader::kPatience - 1; ++i) EXPECT_EQ(pass(reader), "");
  append(kLog, "lf");
  for (int i = 0; i < LogReader::kPatience; ++i)
    EXPECT_EQ(pass(reader), "") << "growth begins the wait anew";
  append(kLog, "\n" + eventLine(3));
  EXPECT_EQ(pass(reader), "2 3 ");
}

TEST_F(LogReaderTest, TakesALineThatNobodyFinishesAfterFivePasses) {
  fake.files.put(kLog, "PFIL,2,t2,half");
  LogReader reader(HIDS_RT_LOG);
  for (int i = 0; i < LogReader::kPatience; ++i) EXPECT_EQ(pass(reader), "");
  EXPECT_EQ(pass(reader), "2 ");
  EXPECT_EQ(pass(reader), "");
}

TEST_F(LogReaderTest, SkipsLinesThatAreNoRecords) {
  fake.files.put(
      kLog, eventLine(1) + "nonsense\n" + "PFIL" + std::string(60, ',') + "\n\n" + eventLine(2));
  LogReader reader(HIDS_RT_LOG);
  EXPECT_EQ(pass(reader), "1 2 ");
  EXPECT_EQ(events(10135), 4u);
  EXPECT_EQ(events(10551), 1u);
}

TEST_F(LogReaderTest, EndsAtTheMarkUnlessMoreFollows) {
  fake.files.put(kLog, eventLine(1) + endLine(2) + eventLine(3));
  LogReader reader(HIDS_RT_LOG);
  EXPECT_EQ(pass(reader), "1 2 3 ");
  EXPECT_FALSE(reader.atEnd());
  append(kLog, endLine(4));
  EXPECT_EQ(pass(reader), "4 ");
  EXPECT_TRUE(reader.atEnd());
  EXPECT_EQ(pass(reader), "");
  EXPECT_TRUE(reader.atEnd()) << "the end is remembered";
  append(kLog, "\r\n");
  EXPECT_EQ(pass(reader), "");
  EXPECT_TRUE(reader.atEnd()) << "what is no record does not undo it";
  append(kLog, eventLine(5));
  EXPECT_FALSE(reader.atEnd());
  EXPECT_EQ(pass(reader), "5 ");
}

TEST_F(LogReaderTest, BeginsANewLogWithTheRightEncoding) {
  std::string wide = "\xFF\xFE";
  for (const char c : eventLine(1)) wide += std::string{c, '\0'};
  fake.files.put(kLog, wide);
  LogReader first(HIDS_RT_LOG);
  EXPECT_EQ(pass(first), "1 ") << "without a pointer";
  FileLogPointer pointer(kPointerFile);
  pointer.setCurrentLogName("/gone.csv");
  pointer.setOffset(0);
  pointer.writePointer();
  LogReader second(HIDS_RT_LOG);
  EXPECT_EQ(pass(second), "1 ") << "in place of one that is gone";
  fake.files.put(kNextLog, "");
  second.switchTo(kNextLog);
  EXPECT_EQ(pass(second), "");
  append(kNextLog, wide.substr(0, 1));
  EXPECT_EQ(pass(second), "");
  append(kNextLog, wide.substr(1));
  EXPECT_EQ(pass(second), "1 ") << "opened before the mark was there";
  fake.files.put(kNextLog, "\xEF\xBB\xBF" + eventLine(2) + eventLine(3));
  second.switchTo(kNextLog);
  EXPECT_EQ(pass(second), "2 3 ") << "with the mark of UTF-8";
}

TEST_F(LogReaderTest, ADamagedPointersOffsetStaysInForce) {
  fake.files.put(kLog, eventLine(1) + eventLine(2));
  FileLogPointer pointer(kPointerFile);
  pointer.setCurrentLogName("/gone.csv");
  pointer.setOffset(static_cast<int>(eventLine(1).size()));
  pointer.writePointer();
  std::string damaged = fake.files.content(kPointerFile);
  damaged[1033] = 3;
  fake.files.put(kPointerFile, damaged);
  LogReader reader(HIDS_RT_LOG);
  EXPECT_EQ(pass(reader), "2 ");
  reader.savePointer(reader.position());
  EXPECT_EQ(FileLogPointer(kPointerFile).getCurrentLogName(), kLog);
}

TEST_F(LogReaderTest, StartsAgainWhereTheLogWasShortenedOrReplaced) {
  fake.files.put(kLog, eventLine(1) + eventLine(2));
  LogReader reader(HIDS_RT_LOG);
  EXPECT_EQ(pass(reader), "1 2 ");
  EXPECT_EQ(reader.successor(), std::nullopt);
  const auto follow = [&] {
    const auto next = reader.successor();
    ASSERT_EQ(next, STRING(kLog));
    reader.switchTo(*next);
  };
  fake.files.put(kLog, eventLine(3));
  follow();
  EXPECT_EQ(pass(reader), "3 ");
  fake.files.put("/opt/korvane/IDS/logs/new", eventLine(4) + eventLine(5));
  fake.files.replace("/opt/korvane/IDS/logs/new", kLog);
  EXPECT_EQ(pass(reader), "");
  follow();
  EXPECT_EQ(pass(reader), "4 5 ");
  reader.savePointer(reader.position());
  fake.files.put(kLog, eventLine(6));
  LogReader later(HIDS_RT_LOG);
  EXPECT_EQ(pass(later), "6 ") << "shortened while nobody read";
}

TEST_F(LogReaderTest, LeavesALogWithoutEndMarkWhenTheCurrentOneIsAnother) {
  fake.files.put(kLog, eventLine(1));
  LogReader reader(HIDS_RT_LOG);
  EXPECT_EQ(pass(reader), "1 ");
  config().setHIDSRTLogFile(kNextLog);
  const auto stays = [&](int passes) {
    while (passes-- > 0)
      if (pass(reader) != "" || reader.successor()) return false;
    return true;
  };
  EXPECT_TRUE(stays(2 * LogReader::kPatience)) << "it is not there yet";
  fake.files.put(kNextLog, "");
  EXPECT_TRUE(stays(2 * LogReader::kPatience)) << "nobody writes to it yet";
  fake.files.put(kNextLog, eventLine(3));
  EXPECT_TRUE(stays(LogReader::kPatience)) << "the end mark may still come";
  append(kLog, eventLine(2));
  EXPECT_EQ(pass(reader), "2 ");
  EXPECT_EQ(reader.successor(), std::nullopt);
  EXPECT_TRUE(stays(LogReader::kPatience - 1));
  EXPECT_EQ(pass(reader), "");
  ASSERT_EQ(reader.successor(), STRING(kNextLog));
  reader.switchTo(kNextLog);
  EXPECT_EQ(pass(reader), "3 ");
}

TEST_F(LogReaderTest, KeepsThePositionOfALogBeyondTwoGiB) {
  FileLogSource source(HIDS_RT_LOG);
  fake.files.put(kLog, eventLine(1));
  STRING line;
  source.readRecord(line);
  source.savePointer();
  const int kept = FileLogPointer(kPointerFile).getOffset();
  source.savePointerAt(int64_t{1} << 31);
  source.savePointerAt(int64_t{1} << 32);
  EXPECT_EQ(FileLogPointer(kPointerFile).getOffset(), kept);
  EXPECT_EQ(events(10550), 1u);
}

}  // namespace
}  // namespace korvane::tests
