#include "logs/field_map.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <charconv>
#include <cstring>

#include "config/machine_facts.h"
#include "logs/byte_scan.h"
#include "logs/record_queue.h"
#include "util/dates.h"

namespace korvane {
namespace {

constexpr size_t kNameRoom = 4;        // "v49="
constexpr size_t kNoteNameLength = 3;  // "a5="

struct FieldName {
  char text[kNameRoom];
  uint8_t length;
};

constexpr std::array<FieldName, kMaxFields + 1> makeNames() {
  std::array<FieldName, kMaxFields + 1> names{};
  for (size_t n = 1; n <= kMaxFields; ++n) {
    const char ones = static_cast<char>('0' + n % 10), tens = static_cast<char>('0' + n / 10);
    if (n < 10)
      names[n] = {{'v', ones, '=', 0}, 3};
    else
      names[n] = {{'v', tens, ones, '='}, 4};
  }
  return names;
}
constexpr auto kNames = makeNames();

// A value stands on a line of its own.
std::string oneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  return text;
}

void addLine(std::string& out, std::string_view name, std::string_view value) {
  if (value.empty()) return;
  (((out += name) += '=') += value) += '\n';
}

class SizeCounter {
 public:
  explicit SizeCounter(size_t notes) : _size(notes) {}
  void field(size_t n, std::string_view value) { _size += kNames[n].length + value.size() + 1; }
  void notes() {}
  size_t size() const { return _size; }

 private:
  size_t _size;
};

class PayloadWriter {
 public:
  PayloadWriter(char* at, size_t size, const RecordNotes::Lines& notes)
      : _at(at), _end(at + size), _notes(notes) {}

  void field(size_t n, std::string_view value) {
    std::memcpy(_at, kNames[n].text, kNameRoom);
    _at += kNames[n].length;
    if (static_cast<size_t>(_end - _at) >= value.size() + scan::kBlock)
      scan::copyShort(_at, value.data(), value.size());
    else
      std::memcpy(_at, value.data(), value.size());
    _at += value.size();
    *_at++ = '\n';
  }
  void notes() { _at = _notes.write(_at); }
  bool full() const { return _at == _end; }

 private:
  char* _at;
  char* const _end;
  const RecordNotes::Lines& _notes;
};

}  // namespace

std::string_view fieldName(size_t n) {
  return {kNames[n].text, kNames[n].length - size_t{1}};
}

RecordNotes::RecordNotes(Values values) : _values(std::move(values)) {
  addLine(_upToA4, "a1", _values.hostname);
  addLine(_upToA4, "a2", _values.ipAddress);
  addLine(_upToA4, "a3", _values.operatingSystem);
  addLine(_upToA4, "a4", _values.logName);
  _ofSingle = _upToA4 + "a5=1\n";
  addLine(_ofSingle, "a6", _values.forwardedAt);
}

RecordNotes RecordNotes::take(const MachineFacts& machine, std::string logName, int64_t wallMs) {
  return RecordNotes({.hostname = oneLine(machine.getHostname().toUtf8()),
                      .ipAddress = oneLine(machine.getIPAddress().toUtf8()),
                      .operatingSystem = oneLine(machine.getOS().toUtf8()),
                      .logName = std::move(logName),
                      .forwardedAt = formatTimestamp(wallMs).substr(0, kLastTimeLength)});
}

RecordNotes::Lines RecordNotes::lines(int32_t count, std::string_view lastTime) const {
  Lines lines;
  if (count == 1) {
    lines.prepared = _ofSingle;
    return lines;
  }
  lines.prepared = _upToA4;
  char* const to = lines.repeats.data();
  std::memcpy(to, "a5=", kNoteNameLength);
  char* const end =
      std::to_chars(to + kNoteNameLength, to + lines.repeats.size() - 1, repeats(count)).ptr;
  *end = '\n';
  lines.repeatsLength = static_cast<size_t>(end + 1 - to);
  lines.lastTime = count < 2 ? std::string_view(_values.forwardedAt) : lastTime;
  return lines;
}

size_t RecordNotes::Lines::size() const {
  return prepared.size() + repeatsLength +
         (lastTime.empty() ? 0 : kNoteNameLength + lastTime.size() + 1);
}

char* RecordNotes::Lines::write(char* to) const {
  to = std::copy(prepared.begin(), prepared.end(), to);
  to = std::copy_n(repeats.data(), repeatsLength, to);
  if (lastTime.empty()) return to;
  to = std::copy_n("a6=", kNoteNameLength, to);
  to = std::copy(lastTime.begin(), lastTime.end(), to);
  *to = '\n';
  return to + 1;
}

void RecordNotes::addPairs(int32_t count, const STRING& lastTime, PropertyList& out) const {
  visit(count, lastTime.toUtf8(),
        [&](std::string_view name, std::string_view value) { out.emplace_back(name, value); });
}

void appendRecord(MessageBody& body, const EventRecord& record, const RecordNotes& notes) {
  const RecordNotes::Lines noteLines = notes.lines(record.count, record.lastTime);
  SizeCounter counter(noteLines.size());
  visitFieldMap(record, counter);
  PayloadWriter writer(body.beginProperties(counter.size()), counter.size(), noteLines);
  visitFieldMap(record, writer);
  assert(writer.full());
  body.endSection();
}

void composeBody(MessageBody& body, const RecordQueue& records, const RecordNotes& notes) {
  body.clear();
  for (size_t i = 0; i < records.size(); ++i) appendRecord(body, records.at(i), notes);
  body.finish();
}

PropertyList fieldPairs(const EventRecord& record, const RecordNotes& notes) {
  struct Pairs {
    const EventRecord& record;
    const RecordNotes& recordNotes;
    PropertyList list;
    void field(size_t n, std::string_view value) { list.emplace_back(fieldName(n), value); }
    void notes() { recordNotes.addPairs(record.count, record.lastTime, list); }
  } out{record, notes, {}};
  visitFieldMap(record, out);
  return std::move(out.list);
}

}  // namespace korvane
