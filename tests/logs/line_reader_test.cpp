#include "logs/line_reader.h"

#include <random>

#include "tests/logs/log_fixture.h"
#include "util/utf8.h"

namespace korvane::tests {
namespace {

std::string toUtf16(const std::string& utf8) {
  std::string bytes;
  for (const char16_t unit : utf8ToUtf16(utf8)) {
    bytes += static_cast<char>(unit & 0xFF);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

class LineReaderTest : public LogFixture {
 protected:
  void attach(const std::string& bytes, bool utf16, int64_t position = 0) {
    fake.files.put(kLog, bytes);
    ASSERT_EQ(files.open(kLog, platform::OpenMode::read, _file), 0);
    _reader.attach(_file.get(), utf16, position);
  }
  SourceLine next() {
    SourceLine line;
    EXPECT_EQ(_reader.next(line), 0);
    return line;
  }
  static std::string text(const SourceLine& line) { return {line.text, line.size}; }

  std::unique_ptr<platform::File> _file;
  LineReader _reader;
};

TEST_F(LineReaderTest, StripsLineEndsAndTellsWhatItRead) {
  for (const bool utf16 : {false, true}) {
    const std::string log = "one\r\n\ntwo\r\r\nunfinished";
    attach(utf16 ? toUtf16(log) : log, utf16);
    const size_t unit = utf16 ? 2 : 1;
    struct {
      const char* text;
      size_t length;
      bool end;
    } wanted[] = {{"one", 5, true},
                  {"", 1, true},
                  {"two", 6, true},
                  {"unfinished", 10, false},
                  {"", 0, false}};
    int64_t start = 0;
    for (const auto& line : wanted) {
      const SourceLine got = next();
      EXPECT_EQ(text(got), line.text);
      EXPECT_EQ(got.length, line.length);
      EXPECT_EQ(got.lineEnd, line.end);
      EXPECT_EQ(got.start, start);
      EXPECT_EQ(got.rawBytes, line.length * unit);
      start += static_cast<int64_t>(got.rawBytes);
    }
    _reader.seek(start - static_cast<int64_t>(10 * unit));
    append(kLog, utf16 ? toUtf16(" no more\n") : " no more\n");
    EXPECT_EQ(text(next()), "unfinished no more");
  }
}

TEST_F(LineReaderTest, ALineFeedIsAWholeCodeUnit) {
  attach(std::string("\x05\x0A\x00\x01\x0A\x0A\x0A\x00", 8), true);  // U+0A05 U+0100 U+0A0A LF
  EXPECT_EQ(next().length, 4u);
}

TEST_F(LineReaderTest, ReadsNothingFromAPlaceThatItCouldNotGoTo) {
  attach("one\ntwo\n", false);
  files.failNth(platform::FileOperation::seek, 1, EIO, kLog);
  SourceLine line;
  _reader.seek(4);
  EXPECT_EQ(_reader.next(line), EIO);
  EXPECT_EQ(_reader.next(line), EIO);
  _reader.seek(4);
  EXPECT_EQ(text(next()), "two");
}

TEST_F(LineReaderTest, CutsOverlongLinesAndGoesOnBehindThem) {
  for (const bool utf16 : {false, true})
    for (const size_t length :
         {kLineLimit - 2, kLineLimit - 1, kLineLimit, kLineLimit + 1, 2 * kLineLimit - 1,
          2 * kLineLimit, 2 * kLineLimit + 1, 10 * kLineLimit}) {
      const std::string log = std::string(length, 'x') + "\nnext\n";
      attach(utf16 ? toUtf16(log) : log, utf16);
      const SourceLine line = next();
      EXPECT_EQ(line.size, std::min(length, kLineLimit)) << length;
      EXPECT_EQ(line.length, std::min(length + 1, kLineLimit)) << length;
      EXPECT_EQ(line.cut, length >= kLineLimit) << length;
      EXPECT_TRUE(line.lineEnd) << length;
      EXPECT_EQ(line.rawBytes, (length + 1) * (utf16 ? 2 : 1)) << length;
      EXPECT_EQ(text(next()), "next") << length;
    }
}

TEST_F(LineReaderTest, AnUnfinishedOverlongLineIsUnfinished) {
  attach(std::string(3 * kLineLimit, 'x'), false);
  const SourceLine line = next();
  EXPECT_TRUE(line.cut);
  EXPECT_FALSE(line.lineEnd);
  EXPECT_EQ(line.size, kLineLimit);
}

TEST_F(LineReaderTest, RepairsMalformedText) {
  attach("a\xC3(\xFFz\n\xE2\x82\n", false);
  EXPECT_EQ(text(next()), "a\xEF\xBF\xBD(\xEF\xBF\xBDz");
  EXPECT_EQ(text(next()), "\xEF\xBF\xBD");
  attach(std::string("\x00\xD8", 2) + toUtf16("x\xF0\x9F\x98\x80\n"), true);
  EXPECT_EQ(text(next()), "\xEF\xBF\xBDx\xF0\x9F\x98\x80");
}

// A code unit whose low or high byte is a line feed's, at odd and even places, ends no line.
TEST_F(LineReaderTest, SeesLineEndsInWholeUnitsOnly) {
  attach(toUtf16("\xC4\x8A\xE0\xA8\x80") + toUtf16("x\n"), true);  // U+010A, U+0A00
  EXPECT_EQ(text(next()), "\xC4\x8A\xE0\xA8\x80x");
}

TEST_F(LineReaderTest, EveryLineOfALargeLogComesWholeAcrossTheBuffersEnds) {
  std::mt19937 random(3);
  std::string log;
  std::vector<std::string> lines;
  while (log.size() < 3000000) {
    lines.push_back(std::string(random() % 5 ? random() % 300 : random() % 60000,
                                static_cast<char>('a' + random() % 26)));
    log += lines.back() + "\n";
  }
  for (const bool utf16 : {false, true}) {
    attach(utf16 ? toUtf16(log) : log, utf16);
    for (const std::string& line : lines) ASSERT_EQ(text(next()), line);
    EXPECT_EQ(next().length, 0u);
  }
}

TEST_F(LineReaderTest, GivesTheErrorOfAFailedRead) {
  attach("line\n", false);
  files.failNth(platform::FileOperation::read, 1, EIO);
  SourceLine line;
  EXPECT_EQ(_reader.next(line), EIO);
  EXPECT_EQ(text(next()), "line");
}

}  // namespace
}  // namespace korvane::tests
