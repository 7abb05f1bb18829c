#include "logs/log_reader.h"

#include "tests/logs/log_fixture.h"
#include "util/errors.h"

namespace korvane::tests {
namespace {

class LogReaderTest : public LogFixture {
 protected:
  // The sequence numbers of the records that a pass yields.
  static std::string pass(LogReader& reader) {
    std::string numbers;
    reader.noteNames();
    for (ParsedEvent record; reader.next(record);) numbers += std::string(record.field(2)) + " ";
    return numbers;
  }
};

TEST_F(LogReaderTest, ReadsAnUnfinishedLineAgainUntilItEnds) {
  fake.files.put(kLog, eventLine(1) + "PFIL,2,t2,ha");
  LogReader reader(HIDS_RT_LOG, parts());
  EXPECT_EQ(pass(reader), "1 ");
  for (int i = 0; i < LogReader::kPatience - 1; ++i) EXPECT_EQ(pass(reader), "");
  append(kLog, "lf");
  for (int i = 0; i < LogReader::kPatience; ++i)
    EXPECT_EQ(pass(reader), "") << "growth begins the wait anew";
  append(kLog, "\n" + eventLine(3));
  EXPECT_EQ(pass(reader), "2 3 ");
}

TEST_F(LogReaderTest, SkipsLinesThatAreNoRecords) {
  fake.files.put(
      kLog, eventLine(1) + "nonsense\n" + "PFIL" + std::string(60, ',') + "\n\n" + eventLine(2));
  LogReader reader(HIDS_RT_LOG, parts());
  EXPECT_EQ(pass(reader), "1 2 ");
  EXPECT_EQ(events(10135), 4u);
  EXPECT_EQ(events(10551), 1u);
}

TEST_F(LogReaderTest, EndsAtTheMarkUnlessMoreFollows) {
  fake.files.put(kLog, eventLine(1) + endLine(2) + eventLine(3));
  LogReader reader(HIDS_RT_LOG, parts());
  EXPECT_EQ(pass(reader), "1 2 3 ");
  EXPECT_FALSE(reader.atEnd());
  append(kLog, endLine(4));
  EXPECT_EQ(pass(reader), "4 ");
  EXPECT_TRUE(reader.atEnd());
  EXPECT_EQ(pass(reader), "");
  EXPECT_TRUE(reader.atEnd()) << "the end is remembered";
  append(kLog, "\r\n");
  EXPECT_EQ(pass(reader), "");
  EXPECT_TRUE(reader.atEnd()) << "what is not a record does not undo it";
  append(kLog, eventLine(5));
  EXPECT_FALSE(reader.atEnd());
  EXPECT_EQ(pass(reader), "5 ");
}

TEST_F(LogReaderTest, BeginsANewLogWithTheRightEncoding) {
  std::string wide = "\xFF\xFE";
  for (const char c : eventLine(1)) wide += std::string{c, '\0'};
  fake.files.put(kLog, wide);
  LogReader first(HIDS_RT_LOG, parts());
  EXPECT_EQ(pass(first), "1 ") << "without a pointer";
  FileLogPointer pointer(kPointerFile);
  pointer.setCurrentLogName("/gone.csv");
  pointer.setOffset(0);
  pointer.writePointer();
  LogReader second(HIDS_RT_LOG, parts());
  for (int i = 0; i < LogReader::kAwaitPasses; ++i) EXPECT_EQ(pass(second), "");
  EXPECT_EQ(pass(second), "1 ") << "in place of one that never appeared";
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
  LogReader reader(HIDS_RT_LOG, parts());
  EXPECT_EQ(pass(reader), "2 ");
  reader.savePointer(reader.position(), 0);
  EXPECT_EQ(FileLogPointer(kPointerFile).getCurrentLogName(), kLog);
}

TEST_F(LogReaderTest, StartsAgainWhereTheLogWasShortenedOrReplaced) {
  fake.files.put(kLog, eventLine(1) + eventLine(2));
  LogReader reader(HIDS_RT_LOG, parts());
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
  reader.savePointer(reader.position(), 0);
  fake.files.put(kLog, eventLine(6));
  LogReader later(HIDS_RT_LOG, parts());
  EXPECT_EQ(pass(later), "6 ") << "shortened while nobody read";
}

TEST_F(LogReaderTest, LeavesALogWithoutEndMarkWhenTheCurrentOneIsAnother) {
  fake.files.put(kLog, eventLine(1));
  LogReader reader(HIDS_RT_LOG, parts());
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

// Two logs that were read to their ends, of which one waits for its turn again, as after a disk that
// took no removal and no list: each would be left for the other without end.
TEST_F(LogReaderTest, LogsWithNothingMoreKeepNobodyFromTheOnesBehindThem) {
  constexpr char kBehind[] = "/opt/korvane/IDS/logs/rt3.csv";
  const std::string logs[] = {kLog, kNextLog, kBehind};
  for (int i = 0; i < 3; ++i) fake.files.put(logs[i], eventLine(i + 1));
  LogReader reader(HIDS_RT_LOG, parts());
  const auto passes = [&](int count) {
    std::string read;
    while (count-- > 0) {
      read += pass(reader);
      if (const auto next = reader.successor()) reader.switchTo(*next);
    }
    return read;
  };
  EXPECT_EQ(passes(1), "1 ");
  config().setHIDSRTLogFile(kNextLog);
  EXPECT_EQ(passes(2 * LogReader::kPatience), "2 ");
  config().setHIDSRTLogFile(kLog);
  config().setHIDSRTLogFile(kBehind);
  EXPECT_EQ(passes(5 * LogReader::kAwaitPasses), "3 ");
}

// The list alone leads to the logs behind the one that the pointer names.
TEST_F(LogReaderTest, APointerThatCouldNotBeFlushedIsFlushedBeforeTheListIsWritten) {
  fake.files.put(kLog, eventLine(1));
  LogReader reader(HIDS_RT_LOG, parts());
  files.failAll(platform::FileOperation::flush, EIO, "filepointer");
  EXPECT_THROW(pass(reader), AgentError);
  EXPECT_EQ(pass(reader), "1 ");
  files.heal();
  const int flushed = files.count(platform::FileOperation::flush);
  config().setHIDSRTLogFile(kNextLog);
  pass(reader);
  EXPECT_EQ(files.count(platform::FileOperation::flush), flushed + 2) << "pointer and list";
  config().setHIDSRTLogFile(kLog);
  pass(reader);
  EXPECT_EQ(files.count(platform::FileOperation::flush), flushed + 3) << "the list";
}

TEST_F(LogReaderTest, ThePatienceWithAnUnfinishedLineBelongsToThatLine) {
  const std::string torn = "PFIL,2,t2,ha";
  fake.files.put(kLog, torn);
  LogReader reader(HIDS_RT_LOG, parts());
  for (int i = 0; i < LogReader::kPatience; ++i) EXPECT_EQ(pass(reader), "");
  fake.files.put(kNextLog, torn);
  reader.switchTo(kNextLog);
  EXPECT_EQ(pass(reader), "") << "a line of the same length at the same place in another log";
  append(kNextLog, "lf\n");
  EXPECT_EQ(pass(reader), "2 ");
}

TEST_F(LogReaderTest, AStopEndsTheReadingOfLinesThatAreNoRecords) {
  fake.files.put(kLog, "nonsense\n" + eventLine(1));
  LogReader reader(HIDS_RT_LOG, parts());
  shutdownToken().request();
  EXPECT_EQ(pass(reader), "");
  shutdownToken().reset();
  EXPECT_EQ(pass(reader), "1 ");
}

// A log of which all but the last part is a hole: line feeds, as many as one likes.
class HollowFiles : public platform::ForwardingFiles {
 public:
  HollowFiles(platform::Files& to, int64_t hole) : ForwardingFiles(to), _hole(hole) {}
  int open(const std::string& path, platform::OpenMode mode,
           std::unique_ptr<platform::File>& out) override {
    std::unique_ptr<platform::File> file;
    const int error = _to.open(path, mode, file);
    if (error == 0 && path == kLog)
      out = std::make_unique<Hollow>(std::move(file), _hole);
    else
      out = std::move(file);
    return error;
  }

 private:
  class Hollow : public platform::ForwardingFile {
   public:
    Hollow(std::unique_ptr<platform::File> to, int64_t hole)
        : ForwardingFile(std::move(to)), _hole(hole) {}
    int read(void* buffer, size_t size, size_t& got) override {
      if (_at >= _hole) {
        const int error = _to->seek(_at - _hole) ? EIO : _to->read(buffer, size, got);
        _at += static_cast<int64_t>(got);
        return error;
      }
      got = std::min(size, static_cast<size_t>(_hole - _at));
      std::fill_n(static_cast<char*>(buffer), got, '\n');
      _at += static_cast<int64_t>(got);
      return 0;
    }
    int seek(int64_t offset) override { return offset < 0 ? EINVAL : (_at = offset, 0); }
    int64_t tell() override { return _at; }
    int info(platform::FileInfo& out) override {
      const int error = _to->info(out);
      out.size += static_cast<uint64_t>(_hole);
      return error;
    }

   private:
    const int64_t _hole;
    int64_t _at = 0;
  };
  const int64_t _hole;
};

TEST_F(LogReaderTest, ALogBeyondTwoGiBGoesOnWhereItWas) {
  constexpr int64_t kHole = (int64_t{5} << 30) + 1, kMost = 2147483647;
  HollowFiles hollow(fake.files, kHole);
  platform::Platform machine = platform::withFiles(system, hollow);
  const platform::OtherPlatform held(machine);
  fake.files.put(kLog, eventLine(1) + eventLine(2));
  {
    FileLogPointer pointer(kPointerFile);
    pointer.setCurrentLogName(kLog);
    pointer.setPosition(kHole);
    pointer.writePointer();
    EXPECT_EQ(pointer.getOffset(), kMost);
  }
  {
    LogReader reader(HIDS_RT_LOG, parts());
    EXPECT_EQ(pass(reader), "1 2 ");
    reader.savePointer(kHole + static_cast<int64_t>(eventLine(1).size()), 0);
  }
  const std::string file = fake.files.content(kPointerFile);
  EXPECT_EQ(file.size(), FileLogPointer::kFileBytes);
  EXPECT_EQ(file.substr(1025, 12), std::string("\xFF\xFF\xFF\x7F\0\0\0\0\0\0\0\0", 12))
      << "to others";
  for (int i = 0; i < 2; ++i) {
    LogReader again(HIDS_RT_LOG, parts());
    EXPECT_EQ(pass(again), "2 ") << "from the place that was saved";
  }
  const auto positionOf = [&](size_t at, const std::string& bytes) {
    std::string changed = file;
    fake.files.put(kPointerFile, changed.replace(at, bytes.size(), bytes));
    return FileLogPointer(kPointerFile).position();
  };
  EXPECT_GT(positionOf(0, ""), kMost);
  EXPECT_EQ(positionOf(1025, "\x07"), 2147483399) << "an offset that another program wrote";
  EXPECT_EQ(positionOf(1, "x"), kMost) << "another log's";
  EXPECT_EQ(positionOf(3085, "P"), kMost) << "a third name";
  fake.files.put(kPointerFile, file);
  FileLogPointer pointer(kPointerFile);
  pointer.setOffset(7);
  pointer.writePointer();
  EXPECT_EQ(fake.files.content(kPointerFile).substr(3085, 24), std::string(24, '\0'));
}

}  // namespace
}  // namespace korvane::tests
