// The records of the agent's own log: one line each, comma-separated, as FixedFormatLog reads them.
// docs/file-formats.md has the fields. Pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>

#include "eventlog/event_log.h"

namespace korvane::eventlog {

// What a record never exceeds, its line feed included; the reader takes lines of a little more.
inline constexpr size_t kMaxRecordBytes = 65536;
// Of a line, for writer and reader.
inline constexpr size_t kMaxFields = 49;

struct Record {
  std::string_view type;
  uint64_t sequence = 0;
  int64_t wallMs = 0;
  int id = 0;  // 0: a trace line
  std::string_view source;
  uint64_t processId = 0;
  uint64_t threadId = 0;
  std::string_view text;
  std::span<const std::string> insertions;
};

// Appends the record's line with its line feed. ASCII's control characters become blanks, the rest is
// as terminalText() has it; what is too long ends in "...(cut)", and insertions beyond the last field
// are left out.
void appendRecord(std::string& out, const Record& record);

// The sequence number of the last whole record in the last bytes of a log; 0 when there is none.
uint64_t lastSequence(std::string_view tail);

// The printf-style format with its arguments; when the two do not fit, the format as it stands with
// the arguments in brackets behind it.
std::string formatPrintf(const char* format, std::initializer_list<Arg> arguments);

}  // namespace korvane::eventlog
