#include "logs/file_log_source.h"
#include "tests/logs/log_fixture.h"
#include "util/errors.h"

namespace korvane::tests {
namespace {

std::string utf16(const std::string& ascii) {
  std::string bytes;
  for (const char c : ascii) bytes += std::string{c, '\0'};
  return bytes;
}

class LogSourceTest : public LogFixture {
 protected:
  // What the next read gives; "-" for nothing.
  static std::string read(FileLogSource& source) {
    STRING line;
    return source.readRecord(line) > 0 ? line.toUtf8() : "-";
  }
  void savePointer(const std::string& name, int offset) {
    FileLogPointer pointer(kPointerFile);
    pointer.setCurrentLogName(name);
    pointer.setOffset(offset);
    pointer.writePointer();
  }
  int savedOffset() { return FileLogPointer(kPointerFile).getOffset(); }
};

TEST_F(LogSourceTest, ReadsFromWhereThePointerStands) {
  const std::string mark = "\xFF\xFE";
  const struct {
    const char* what;
    std::string pointerName;
    int offset;
    std::string log;
    const char* first;
  } cases[] = {{"no pointer: the current log, from its beginning", "", 0, "one\ntwo\n", "one"},
               {"a name: the place in that log", kLog, 4, "one\ntwo\n", "two"},
               {"UTF-16 by name, from behind its mark", kLog, 0, mark + utf16("one\ntwo\n"), "one"},
               {"UTF-16 by name, in the middle", kLog, 10, mark + utf16("one\ntwo\n"), "two"},
               {"a log that is gone: the current one at the same place", "/gone.csv", 4,
                "one\ntwo\n", "two"},
               {"a log that is gone, and the current one is empty", "/gone.csv", 4, "", "-"},
               {"a log that is gone, and the current one ends far before", "/gone.csv", 400,
                "one\ntwo\n", "one"},
               {"a negative offset", kLog, -5, "one\ntwo\n", "one"}};
  for (const auto& test : cases) {
    savePointer(test.pointerName, test.offset);
    fake.files.put(kLog, test.log);
    FileLogSource source(HIDS_RT_LOG);
    EXPECT_EQ(read(source), test.first) << test.what;
    EXPECT_EQ(source.getCurrentLogName(), kLog) << test.what;
  }
  EXPECT_GE(inOwnLog("Current log file name not initialized in Log Pointer Object!!"), 1u);
  EXPECT_EQ(inOwnLog("File open error : /gone.csv"), 3u);
}

TEST_F(LogSourceTest, SeesAppendedLinesAndKeepsThePlace) {
  fake.files.put(kLog, "one\n");
  FileLogSource source(HIDS_RT_LOG);
  EXPECT_TRUE(source.isEOF());
  EXPECT_EQ(read(source), "one");
  EXPECT_TRUE(source.isEOF());
  EXPECT_EQ(read(source), "-");
  append(kLog, "two\r\nthree\n");
  EXPECT_FALSE(source.isEOF());
  EXPECT_EQ(read(source), "two");
  EXPECT_EQ(savedOffset(), 0) << "nothing is kept before savePointer";
  source.savePointer();
  EXPECT_EQ(savedOffset(), 9);
  source.savePointerAt(4);
  EXPECT_EQ(savedOffset(), 4);
  EXPECT_EQ(read(source), "three");
}

TEST_F(LogSourceTest, SwitchesToTheBeginningOfAnotherLog) {
  fake.files.put(kLog, "one\n");
  fake.files.put(kNextLog, "\xFF\xFE" + utf16("other\n"));
  FileLogSource source(HIDS_RT_LOG);
  read(source);
  source.switchToLog(kNextLog);
  EXPECT_EQ(FileLogPointer(kPointerFile).getCurrentLogName(), kNextLog);
  EXPECT_EQ(read(source), "other");
}

TEST_F(LogSourceTest, ReportsALogThatCannotBeOpenedOnceUntilItCan) {
  FileLogSource source(HIDS_RT_LOG);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(read(source), "-");
  EXPECT_EQ(events(10185), 1u);
  EXPECT_EQ(inOwnLog(std::string("Fatal Error - Unable to open log file : ") + kLog), 3u);
  fake.files.put(kLog, "one\n");
  EXPECT_EQ(read(source), "one");
}

TEST_F(LogSourceTest, ATypeWithoutALogReadsNothing) {
  for (const int type : {1, 3, 5}) {
    FileLogSource source(static_cast<LogType>(type));
    EXPECT_EQ(read(source), "-");
    EXPECT_TRUE(source.isEOF());
  }
  EXPECT_EQ(
      inOwnLog(
          "Fatal Error: KAVRTEvent.csv file not initialized in agent configuration structure."),
      2u);
}

TEST_F(LogSourceTest, ThrowsWhenReadingFails) {
  fake.files.put(kLog, "one\n");
  FileLogSource source(HIDS_RT_LOG);
  source.openLog();
  files.failAll(platform::FileOperation::read, EIO, "rt.csv");
  try {
    read(source);
    FAIL();
  } catch (const FileError& error) {
    EXPECT_EQ(error.errnoValue(), EIO);
    EXPECT_EQ(error.operation(), "readLineBuffered");
    EXPECT_EQ(error.message(), "Error reading file");
  }
}

}  // namespace
}  // namespace korvane::tests
