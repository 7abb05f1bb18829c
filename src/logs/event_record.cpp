#include "logs/event_record.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "eventlog/event_log.h"
#include "logs/byte_scan.h"
#include "util/errors.h"

namespace korvane {
namespace {

constexpr char kParseTag[] = "FixedFormatLog::parseLog";
constexpr size_t kTypeCharacters = 4;
constexpr size_t kMaxTypeBytes = 3 * kTypeCharacters;

// Collects the slices between separators; counts on when there is no more room.
class SliceList {
 public:
  explicit SliceList(FieldSlice* out) : _out(out) {}
  void separatorAt(size_t position) {
    if (_count < kMaxFields)
      _out[_count] = {static_cast<uint32_t>(_begin), static_cast<uint32_t>(position)};
    ++_count;
    _begin = position + 1;
  }
  size_t count() const { return _count; }

 private:
  FieldSlice* _out;
  size_t _count = 0;
  size_t _begin = 0;
};

void splitPlain(const char* line, size_t from, size_t length, SliceList& list) {
  for (size_t at = from; at < length; at += scan::kBlock) {
    for (uint32_t hits = scan::positionsOf(line + at, length - at, ',', ','); hits;
         hits &= hits - 1)
      list.separatorAt(at + static_cast<size_t>(std::countr_zero(hits)));
  }
  list.separatorAt(length);
}

// " Event Type:..." and so on, for the lines that are long enough to have them.
std::string describe(const std::string& line, size_t count, const FieldSlice* slices) {
  if (count <= 3) return {};
  static constexpr const char* kNames[] = {" Event Type:", " SeqNum:", " Time:"};
  std::string copy = line, text;
  for (size_t i = 0; i < 3; ++i) {
    const FieldSlice field = unquoteInPlace(copy.data(), slices[i]);
    (text += kNames[i]).append(copy, field.begin, field.end - field.begin);
  }
  return text;
}

[[noreturn]] void throwTooManyFields(const std::string& line, size_t count,
                                     const FieldSlice* slices) {
  eventlog::trace(kParseTag, "size = %d, TOTAL_FIELDS = %d", count, kMaxFields);
  throw AgentError(kErrorTooManyFields,
                   " Corrupt Log: Too many fields size =" + std::to_string(count) +
                       describe(line, count, slices) + " FixedFormatLog::parseLog",
                   kParseTag);
}

void reportWrongType(const std::string& line, size_t count, const FieldSlice* slices) {
  eventlog::trace(kParseTag, "Event Type is incorrect. Log = %s", line);
  eventlog::event(EventId::logForwardingError, "FixedFormatLog::parseLog()",
                  {" Event Type is incorrect" + describe(line, count, slices)});
  eventlog::event(EventId::logForwardingError, "FixedFormatLog::parseLog() - Actual Log", {line});
}

// UTF-16 code units that begin at this byte: two for what takes four bytes in UTF-8.
size_t unitsAt(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte >= 0xF0 ? 2 : (byte & 0xC0) != 0x80 ? 1 : 0;
}

size_t characterCount(std::string_view utf8) {
  size_t count = 0;
  for (const char c : utf8) count += unitsAt(c);
  return count;
}

bool isEventType(std::string_view type) {
  return !type.empty() && std::string_view("TDPMA").find(type.front()) != std::string_view::npos &&
         type.size() <= kMaxTypeBytes && characterCount(type) == kTypeCharacters;
}

bool typeIsRight(const char* line, FieldSlice slice) {
  const std::string_view raw(line + slice.begin, slice.end - slice.begin);
  if (raw.empty() || raw.front() != '"') return isEventType(raw);
  char copy[2 * kMaxTypeBytes + 2];
  if (raw.size() > sizeof copy) return false;
  std::memcpy(copy, raw.data(), raw.size());
  const FieldSlice field = unquoteInPlace(copy, {0, static_cast<uint32_t>(raw.size())});
  return isEventType({copy + field.begin, field.end - field.begin});
}

}  // namespace

std::string_view firstCharacters(std::string_view utf8, size_t characters) {
  if (utf8.size() <= characters) return utf8;
  size_t count = 0;
  for (size_t i = 0; i < utf8.size(); ++i)
    if ((count += unitsAt(utf8[i])) > characters) return utf8.substr(0, i);
  return utf8;
}

SplitResult splitFields(const char* line, size_t length, FieldSlice (&out)[kMaxFields]) {
  SliceList list(out), atQuote(out);
  bool open = false, quoted = false;
  size_t openQuote = 0;
  for (size_t at = 0; at < length; at += scan::kBlock) {
    for (uint32_t hits = scan::positionsOf(line + at, length - at, ',', '"'); hits;
         hits &= hits - 1) {
      const size_t position = at + static_cast<size_t>(std::countr_zero(hits));
      if (line[position] == ',') {
        if (!open) list.separatorAt(position);
        continue;
      }
      quoted = true;
      open = !open;
      if (open) openQuote = position, atQuote = list;
    }
  }
  if (!open) {
    list.separatorAt(length);
    return {list.count(), quoted};
  }
  splitPlain(line, openQuote + 1, length, atQuote);
  return {atQuote.count(), quoted};
}

FieldSlice unquoteInPlace(char* line, FieldSlice slice) {
  if (slice.end - slice.begin < 2 || line[slice.begin] != '"' || line[slice.end - 1] != '"')
    return slice;
  char* const begin = line + slice.begin + 1;
  char* const end = line + slice.end - 1;
  char* from = static_cast<char*>(std::memchr(begin, '"', static_cast<size_t>(end - begin)));
  char* to = from ? from : end;
  while (from && from < end) {
    if (*from == '"' && from + 1 < end && from[1] == '"') ++from;
    *to++ = *from++;
  }
  return {slice.begin + 1, static_cast<uint32_t>(to - line)};
}

ParseResult parseEvent(char* line, size_t length, ParsedEvent& out) {
  const SplitResult split = splitFields(line, length, out.slices);
  if (split.count > kMaxFields) throwTooManyFields({line, length}, split.count, out.slices);
  if (!typeIsRight(line, out.slices[0])) {
    reportWrongType({line, length}, split.count, out.slices);
    return ParseResult::wrongType;
  }
  if (split.quoted)
    for (size_t i = 0; i < split.count; ++i) out.slices[i] = unquoteInPlace(line, out.slices[i]);
  out.text = line;
  out.length = static_cast<uint32_t>(length);
  out.fieldCount = static_cast<uint32_t>(split.count);
  out.fields = out.slices;
  out.quoted = split.quoted;
  out.count = 1;
  out.lastTime = {};
  return ParseResult::accepted;
}

bool sameEvent(const EventRecord& a, const EventRecord& b) {
  if (a.field(1) != b.field(1)) return false;
  // Without quotes the bytes behind the third field are equal exactly when the fields are.
  if (!a.quoted && !b.quoted && a.fieldCount == b.fieldCount && a.fieldCount > 3) {
    const uint32_t fromA = a.fields[2].end, fromB = b.fields[2].end;
    return a.length - fromA == b.length - fromB &&
           std::memcmp(a.text + fromA, b.text + fromB, a.length - fromA) == 0;
  }
  const size_t fields = std::max(a.fieldCount, b.fieldCount);
  for (size_t n = 4; n <= fields; ++n)
    if (a.field(n) != b.field(n)) return false;
  return true;
}

}  // namespace korvane
