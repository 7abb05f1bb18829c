#include "eventlog/record.h"

#include <algorithm>
#include <charconv>

#include "util/dates.h"
#include "util/terminal_text.h"

namespace korvane::eventlog {
namespace {

constexpr std::string_view kCutMark = "...(cut)";
constexpr size_t kFixedFields = 8;
constexpr size_t kMaxSourceBytes = 512;
constexpr size_t kMaxTextBytes = 32000;
// Leaves room for the mark and the separators of all fields below kMaxRecordBytes.
constexpr size_t kMaxFieldsBytes = 64000;

bool isControl(char c) {
  return static_cast<unsigned char>(c) < 0x20 || c == 0x7f;
}

// The longest beginning of well-formed `text` that takes at most `room` bytes with its
// quotes doubled.
size_t fittingPrefix(std::string_view text, size_t room) {
  size_t used = 0, i = 0;
  for (; i < text.size(); ++i) {
    used += text[i] == '"' ? 2 : 1;
    if (used > room) break;
  }
  while (i > 0 && i < text.size() && (static_cast<unsigned char>(text[i]) & 0xC0) == 0x80) --i;
  return i;
}

void appendQuoted(std::string& out, std::string_view text) {
  for (const char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
}

// Appends a separator and the field, in at most `room` bytes but for the mark of a cut.
void appendField(std::string& out, std::string_view text, size_t room) {
  // What lies beyond the cut need not be looked at; no character has more than four bytes.
  std::string shown(text.substr(0, room + 4));
  std::replace_if(shown.begin(), shown.end(), isControl, ' ');
  const bool ascii = std::all_of(shown.begin(), shown.end(),
                                 [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (!ascii) shown = terminalText(shown);
  text = shown;
  out += ',';
  const size_t length = fittingPrefix(text, room);
  const bool quoted = text.find_first_of(",\"") != std::string_view::npos;
  if (quoted) out += '"';
  appendQuoted(out, text.substr(0, length));
  if (length < text.size()) out += kCutMark;
  if (quoted) out += '"';
}

size_t roomLeft(size_t used) {
  return used < kMaxFieldsBytes ? kMaxFieldsBytes - used : 0;
}

}  // namespace

void appendRecord(std::string& out, const Record& record) {
  const size_t begin = out.size();
  out += record.type;
  out += ',' + std::to_string(record.sequence);
  out += ',' + formatTimestamp(record.wallMs);
  out += ',';
  if (record.id != 0) out += std::to_string(record.id);
  appendField(out, record.source, kMaxSourceBytes);
  out += ',' + std::to_string(record.processId);
  out += ',' + std::to_string(record.threadId);
  appendField(out, record.text, kMaxTextBytes);
  const size_t count = std::min(record.insertions.size(), kMaxFields - kFixedFields);
  for (const std::string& insertion : record.insertions.first(count))
    appendField(out, insertion, roomLeft(out.size() - begin));
  out += '\n';
}

uint64_t lastSequence(std::string_view tail) {
  const size_t end = tail.rfind('\n');
  if (end == std::string_view::npos) return 0;
  const size_t before = tail.substr(0, end).rfind('\n');
  const size_t begin = before == std::string_view::npos ? 0 : before + 1;
  std::string_view line = tail.substr(begin, end - begin);
  const size_t comma = line.find(',');
  if (comma == std::string_view::npos) return 0;
  line.remove_prefix(comma + 1);
  uint64_t sequence = 0;
  const auto [stop, error] = std::from_chars(line.data(), line.data() + line.size(), sequence);
  return error == std::errc() && stop != line.data() + line.size() && *stop == ',' ? sequence : 0;
}

}  // namespace korvane::eventlog
