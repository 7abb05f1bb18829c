#include "eventlog/record.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "logs/byte_scan.h"
#include "logs/event_record.h"
#include "util/utf8.h"

namespace korvane::eventlog {
namespace {

Record sample(std::string_view text, std::span<const std::string> insertions) {
  Record record;
  record.type = "AERR";
  record.sequence = 42;
  record.wallMs = 1767225600123;
  record.id = 10100;
  record.source = "MainThread";
  record.processId = 7;
  record.threadId = 8;
  record.text = text;
  record.insertions = insertions;
  return record;
}

// The fields of a line as log forwarding reads them.
std::vector<std::string> readBack(std::string line) {
  EXPECT_TRUE(line.ends_with('\n'));
  EXPECT_EQ(std::count(line.begin(), line.end(), '\n'), 1);
  const size_t length = line.size() - 1;
  line.append(scan::kBlock, '\0');
  ParsedEvent event;
  EXPECT_EQ(parseEvent(line.data(), length, event), ParseResult::accepted);
  std::vector<std::string> fields;
  for (size_t i = 1; i <= event.fieldCount; ++i) fields.emplace_back(event.field(i));
  return fields;
}

TEST(Record, IsReadBackAsItWasWritten) {
  const struct {
    const char* written;
    const char* read;
  } texts[] = {
      {"", ""},
      {"plain", "plain"},
      {"a,b", "a,b"},
      {"say \"hello\"", "say \"hello\""},
      {"\"", "\""},
      {"\"\"", "\"\""},
      {",\",\"\",", ",\",\"\","},
      {" blanks kept ", " blanks kept "},
      {"two\r\nlines\tand a tab", "two  lines and a tab"},
      {"\xC3\xA4\xF0\x9F\x98\x80", "\xC3\xA4\xF0\x9F\x98\x80"},
      {"bad \xC3\x28", "bad \xEF\xBF\xBD\x28"},
      {"\u007f\u009b31m\u061c\u200e\u202a\u2066", " \\u009b31m\\u061c\\u200e\\u202a\\u2066"},
      {"\u00a0\u200d\u2010\u202f\u206a", "\u00a0\u200d\u2010\u202f\u206a"},
  };
  for (const auto& text : texts) {
    const std::vector<std::string> insertions = {text.written, "last"};
    std::string line;
    appendRecord(line, sample(text.written, insertions));
    const std::vector<std::string> expected = {
        "AERR",    "42",  "2026-01-01 00:00:00.123", "10100", "MainThread", "7", "8", text.read,
        text.read, "last"};
    EXPECT_EQ(readBack(line), expected);
  }
}

TEST(Record, StaysWithinWhatTheReaderTakes) {
  for (const std::string_view piece : {"x", "\"", "\xF0\x9F\x98\x80", "a,b\n", "\xFF"}) {
    std::string huge;
    while (huge.size() < 300000) huge += piece;
    const std::vector<std::string> insertions(60, huge);
    Record record = sample(huge, insertions);
    record.source = huge;
    std::string line;
    appendRecord(line, record);
    EXPECT_LE(line.size(), kMaxRecordBytes);
    EXPECT_TRUE(isValidUtf8(line));
    const std::vector<std::string> fields = readBack(line);
    ASSERT_EQ(fields.size(), kMaxFields);
    for (const size_t cut : {4u, 7u, 8u, 48u})
      EXPECT_TRUE(fields[cut].ends_with("...(cut)")) << cut;
    EXPECT_GT(fields[7].size(), 10000u);
  }
}

TEST(Record, SequenceIsTakenFromTheLastWholeLine) {
  EXPECT_EQ(lastSequence(""), 0u);
  EXPECT_EQ(lastSequence("TRAC,5,2026"), 0u);
  EXPECT_EQ(lastSequence("TRAC,5,2026\n"), 5u);
  EXPECT_EQ(lastSequence("TRAC,5,a\nAINF,17,b\nAINF,18"), 17u);
  EXPECT_EQ(lastSequence("AINF,17,b\n\n"), 0u);
  EXPECT_EQ(lastSequence("AINF,17x,b\n"), 0u);
  EXPECT_EQ(lastSequence("AINF,17\n"), 0u);
}

TEST(Format, FollowsPrintf) {
  const STRING wide(
      "w\xC3\xAF"
      "de");
  EXPECT_EQ(formatPrintf("%d %s|%hs|%ls|%%",
                         {Arg(-5), Arg("text"), Arg(wide), Arg(std::string_view("v"))}),
            "-5 text|w\xC3\xAF"
            "de|v|%");
  EXPECT_EQ(formatPrintf("%u %x %X", {Arg(-1), Arg(-1), Arg(255u)}), "4294967295 ffffffff FF");
  EXPECT_EQ(formatPrintf("%lld %lu %ld %d", {Arg(int64_t{-1} << 40), Arg(~uint64_t{0}), Arg(7L),
                                             Arg(int64_t{1} << 40)}),
            "-1099511627776 18446744073709551615 7 1099511627776");
  EXPECT_EQ(formatPrintf("%5d|%-5s|%05d", {Arg(1), Arg("a"), Arg(42)}), "    1|a    |00042");
}

TEST(Format, ThatDoesNotFitIsWrittenAsItStands) {
  EXPECT_EQ(formatPrintf("%d and %s", {Arg(1)}), "%d and %s [1]");
  EXPECT_EQ(formatPrintf("%d", {Arg("text")}), "%d [text]");
  EXPECT_EQ(formatPrintf("%s", {Arg(12)}), "%s [12]");
  EXPECT_EQ(formatPrintf("100% sure", {}), "100% sure");
  EXPECT_EQ(formatPrintf("%", {}), "%");
  EXPECT_EQ(formatPrintf("%99999999999d", {Arg(1)}), "%99999999999d [1]");
  EXPECT_EQ(formatPrintf("more than asked", {Arg(1)}), "more than asked");
}

}  // namespace
}  // namespace korvane::eventlog
