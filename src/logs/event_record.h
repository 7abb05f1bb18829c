// The byte core of an event line: a line cut into fields, as slices of UTF-8 text that lies
// elsewhere.
//
// Quoting: double quotes pair up from the left; a comma between the two of a pair separates
// nothing, and a last quote without a partner is an ordinary character. A field that begins and
// ends with a quote loses both, and a doubled quote in it stands for one. Blanks are kept. n
// separating commas give n + 1 fields, empty ones included.
//
// Lifetime: an EventRecord refers to the text it was parsed from and is valid as long as
// that text stays where it is. Threads: no shared state. Errors: parseEvent throws
// AgentError 16 for a line of more than kMaxFields fields. Sizes are bytes; fields are
// numbered from 1, as their names "v1", "v2" are.
//
//   EventRecord record;
//   if (parseEvent(line, length, record) == ParseResult::accepted) use(record.field(2));
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "eventlog/record.h"
#include "util/string.h"

namespace korvane {

// The fields of a line: 17 named ones and at most 32 extra ones. What writes one keeps to that.
using eventlog::kMaxFields;
inline constexpr size_t kStandardFields = 17;
// Code of the error for a line with more fields.
inline constexpr int kErrorTooManyFields = 16;
// The last-occurrence time of a folded record has at most so many characters.
inline constexpr size_t kLastTimeLength = 22;

struct FieldSlice {
  uint32_t begin = 0;
  uint32_t end = 0;
};

struct EventRecord {
  const char* text = nullptr;
  uint32_t length = 0;
  uint32_t fieldCount = 0;
  const FieldSlice* fields = nullptr;
  bool quoted = false;  // the line holds a quote, so that equal fields may be written differently
  int32_t count = 1;    // occurrences; above 1 in the summary of a folded run
  std::string_view lastTime;  // of the last occurrence, in a summary
  int64_t lineStart = 0;      // where in its log the line begins

  // Field n, counted from 1; empty when the line has no such field.
  std::string_view field(size_t n) const {
    if (n == 0 || n > fieldCount) return {};
    const FieldSlice slice = fields[n - 1];
    return {text + slice.begin, slice.end - slice.begin};
  }
  // How many lines of the log it stands for: a summary for its repeats.
  uint32_t lines() const { return count >= 2 ? static_cast<uint32_t>(count) - 1 : 1; }
  size_t extraFields() const {
    return fieldCount > kStandardFields ? fieldCount - kStandardFields : 0;
  }
  bool isEndOfFile() const { return field(1) == "MEOF"; }
  bool isStartOfFile() const { return field(1) == "MSOF"; }
};

enum class ParseResult { accepted, wrongType };

// A record together with the room for its slices.
struct ParsedEvent : EventRecord {
  ParsedEvent() = default;
  ParsedEvent(const ParsedEvent&) = delete;
  ParsedEvent& operator=(const ParsedEvent&) = delete;
  FieldSlice slices[kMaxFields];
};

// Parses one line without its line end. The text is changed in place where a doubled quote becomes
// one; scan::kBlock bytes behind it can be read. A line of a wrong event type is reported (event
// 10135) and not accepted; `out` is undefined then.
[[nodiscard]] ParseResult parseEvent(char* line, size_t length, ParsedEvent& out);

// True when both are the same event: all fields equal but the sequence number and the time.
bool sameEvent(const EventRecord& a, const EventRecord& b);

// The first so many characters (UTF-16 code units) of a well-formed text.
std::string_view firstCharacters(std::string_view utf8, size_t characters);

// The steps of parseEvent, apart.
struct SplitResult {
  size_t count = 0;  // fields of the line; only the first kMaxFields have a slice
  bool quoted = false;
};
[[nodiscard]] SplitResult splitFields(const char* line, size_t length,
                                      FieldSlice (&out)[kMaxFields]);
// Takes the enclosing quotes off a slice and undoes doubled quotes in it.
FieldSlice unquoteInPlace(char* line, FieldSlice slice);

}  // namespace korvane
