#include "logs/file_log_pointer.h"
#include "logs/log_pointer_factory.h"
#include "platform/fake/recording_files.h"
#include "tests/logs/log_fixture.h"
#include "util/errors.h"

namespace korvane::tests {
namespace {

using platform::FileOperation;

class LogPointerTest : public LogFixture {
 protected:
  std::string content() { return fake.files.content(kPointerFile); }
  // Puts bytes at a place of a pointer file of zeros.
  static std::string fileWith(std::initializer_list<std::pair<size_t, std::string>> places) {
    std::string bytes(FileLogPointer::kFileBytes, '\0');
    for (const auto& [at, text] : places) bytes.replace(at, text.size(), text);
    return bytes;
  }
  static std::string wide(const std::string& ascii) {
    std::string bytes;
    for (const char c : ascii) bytes += std::string{c, '\0'};
    return bytes;
  }
};

TEST_F(LogPointerTest, AMissingFileMeansTheDefaultsAndTheFirstSaveMakesIt) {
  FileLogPointer pointer(kPointerFile);
  EXPECT_EQ(pointer.getOffset(), 0);
  EXPECT_TRUE(pointer.getCurrentLogName().empty());
  EXPECT_TRUE(pointer.getStartTimeStamp().empty());
  EXPECT_EQ(events(10176), 0u);
  pointer.writePointer();
  EXPECT_EQ(content(), fileWith({}));
}

TEST_F(LogPointerTest, AFileThatCannotBeReadIsReportedAndMeansTheDefaults) {
  fake.files.put(kPointerFile, fileWith({{1, wide("log.csv")}, {1025, "\x01\x02\x03\x04"}}));
  for (const int nth : {1, 2}) {
    files.failNth(FileOperation::read, nth, EIO, kPointerFile);
    FileLogPointer pointer(kPointerFile);
    EXPECT_EQ(pointer.getOffset(), 0);
    EXPECT_TRUE(pointer.getCurrentLogName().empty());
    EXPECT_EQ(events(10176), static_cast<size_t>(nth));
  }
}

TEST_F(LogPointerTest, LiesInTheFileByteForByte) {
  const std::string bytes = fileWith({{0, "\x07"},
                                      {1, wide("C:\\log.csv")},
                                      {1025, "\x01\x02\x03\x04"},
                                      {1029, std::string(4, '\0')},
                                      {1033, std::string("\x02\0\0\0", 4)},
                                      {1037, wide("first")},
                                      {2061, wide("second")},
                                      {4109, wide("start")},
                                      {4237, wide("end")}});
  fake.files.put(kPointerFile, bytes);
  FileLogPointer pointer(kPointerFile);
  EXPECT_EQ(pointer.getCurrentLogName(), "C:\\log.csv");
  EXPECT_EQ(pointer.getOffset(), 0x04030201);
  EXPECT_EQ(pointer.getStartTimeStamp(), "start");
  EXPECT_EQ(pointer.getEndTimeStamp(), "end");
  pointer.writePointer();
  EXPECT_EQ(content(), bytes);
  pointer.setCurrentLogName("x");
  pointer.setOffset(-2);
  pointer.writePointer();
  EXPECT_EQ(content().substr(0, 1033), "\x07" + wide("x") + std::string(1022, '\0') +
                                           "\xFE\xFF\xFF\xFF" + std::string(4, '\0'));
}

TEST_F(LogPointerTest, CutsTextsThatDoNotFit) {
  FileLogPointer pointer(kPointerFile);
  pointer.setCurrentLogName(STRING(std::string(600, 'n')));
  pointer.setStartTimeStamp(STRING(std::string(100, 's')));
  pointer.setEndTimeStamp(STRING(std::string(63, 'e')));
  pointer.writePointerDurably();
  const FileLogPointer copy(kPointerFile);
  EXPECT_EQ(copy.getCurrentLogName().length(), 511u);
  EXPECT_EQ(FileLogPointer(copy).getStartTimeStamp().length(), 63u);
  EXPECT_EQ(FileLogPointer(copy).getEndTimeStamp().length(), 63u);
}

TEST_F(LogPointerTest, WhatWasWrittenDurablySurvivesEveryCrashAndNoFlushCanBeLeftOut) {
  platform::RecordingFiles recording(fake.files);
  platform::Platform machine = platform::withFiles(fake.platform(), recording);
  const platform::OtherPlatform recorded(machine);
  FileLogPointer pointer(kPointerFile);
  pointer.setOffset(4711);
  pointer.writePointerDurably();
  const auto lost = [&] {
    size_t count = 0;
    recording.forEachCrashAfter(recording.size(), [&](const auto&, platform::MemoryFiles& disk) {
      count += disk.content(kPointerFile) != content();
    });
    return count;
  };
  EXPECT_EQ(lost(), 0U);
  ASSERT_EQ(recording.flushes(), 2U);
  for (const size_t flush : {0U, 1U}) {
    recording.leaveOutFlush(flush);
    EXPECT_GT(lost(), 0U) << recording.describeFlush(flush);
  }
  pointer.writePointerDurably();
  EXPECT_EQ(recording.flushes(), 3U) << "the folder needs it once";
}

TEST_F(LogPointerTest, ADamagedFileKeepsItsOffsetAndIsMadeAnew) {
  fake.files.put(
      kPointerFile,
      fileWith({{1, wide("name")}, {1025, "\x09"}, {1033, "\x03"}, {1037, wide("entry")}}));
  FileLogPointer pointer(kPointerFile);
  EXPECT_TRUE(pointer.getCurrentLogName().empty());
  EXPECT_EQ(pointer.getOffset(), 9);
  pointer.writePointer();
  EXPECT_EQ(content(), fileWith({{1025, "\x09"}}));
}

TEST_F(LogPointerTest, AShortFileIsReadAsFarAsItGoes) {
  fake.files.put(kPointerFile, std::string("\0", 1) + wide("name"));
  EXPECT_EQ(FileLogPointer(kPointerFile).getCurrentLogName(), "name");
}

TEST_F(LogPointerTest, ReportsWhatFails) {
  fake.files.put(kPointerFile, fileWith({{1025, "\x09"}}));
  files.failNth(FileOperation::open, 1, EIO, "filepointer");
  FileLogPointer pointer(kPointerFile);
  EXPECT_EQ(events(10176), 1u);
  EXPECT_EQ(pointer.getOffset(), 0);
  const struct {
    FileOperation operation;
    const char* text;
  } failures[] = {{FileOperation::open, "Failed to open file pointer file"},
                  {FileOperation::write, "Failed to write to file pointer file"}};
  for (const auto& failure : failures) {
    files.failNth(failure.operation, 1, ENOSPC, "filepointer");
    try {
      pointer.writePointer();
      FAIL() << failure.text;
    } catch (const FileError& error) {
      EXPECT_EQ(error.errnoValue(), ENOSPC);
      EXPECT_EQ(error.operation(), "writePointer");
      EXPECT_EQ(error.message().toUtf8(), std::string(failure.text) + kPointerFile +
                                              " Error Code : " + std::to_string(ENOSPC));
    }
  }
  pointer.writePointer();
  EXPECT_EQ(content().size(), FileLogPointer::kFileBytes);
}

}  // namespace
}  // namespace korvane::tests
