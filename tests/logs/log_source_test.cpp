#include "logs/file_log_source.h"
#include "tests/logs/log_fixture.h"
#include "util/errors.h"

namespace korvane::tests {
namespace {

class LogSourceTest : public LogFixture {
 protected:
  // What the next read gives; "-" for nothing.
  static std::string read(FileLogSource& source) {
    STRING line;
    return source.readRecord(line) > 0 ? line.toUtf8() : "-";
  }
};

TEST_F(LogSourceTest, ReportsALogThatCannotBeOpenedOnceUntilItCan) {
  FileLogSource source(HIDS_RT_LOG, files, settings().logs);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(read(source), "-");
  EXPECT_EQ(events(10185), 1u);
  EXPECT_EQ(inOwnLog(std::string("Fatal Error - Unable to open log file : ") + kLog), 3u);
  fake.files.put(kLog, "one\n");
  EXPECT_EQ(read(source), "one");
}

TEST_F(LogSourceTest, ATypeWithoutALogReadsNothing) {
  for (const int type : {1, 3, 5}) {
    FileLogSource source(static_cast<LogType>(type), files, settings().logs);
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
  FileLogSource source(HIDS_RT_LOG, files, settings().logs);
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
