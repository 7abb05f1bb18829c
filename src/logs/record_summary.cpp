#include "logs/record_summary.h"

#include <algorithm>

namespace korvane {
namespace {

constexpr uint32_t kFieldsNoted =
    3;  // type, sequence number and time are always there in a summary

}  // namespace

bool RecordSummary::matches(const EventRecord& record) const {
  if (!_open) return false;
  EventRecord own = _record;
  own.length = static_cast<uint32_t>(_copied);
  return sameEvent(own, record);
}

void RecordSummary::begin(const EventRecord& first, int64_t nowMs) {
  copy(first);
  _startedMs = nowMs;
  _open = true;
}

void RecordSummary::fold(const EventRecord& repeat) {
  if (_record.count == 1) copy(repeat);
  ++_record.count;
  note(repeat.field(2), repeat.field(3));
}

void RecordSummary::copy(const EventRecord& record) {
  _text.clear();
  _text.append(record.text, record.length);
  _copied = record.length;
  std::copy_n(record.fields, record.fieldCount, _slices);
  for (uint32_t i = record.fieldCount; i < kFieldsNoted; ++i) _slices[i] = {};
  _record = record;
  _record.text = _text.data();
  _record.fields = _slices;
  _record.fieldCount = std::max(record.fieldCount, kFieldsNoted);
  _record.count = 1;
  _record.lastTime = {};
}

void RecordSummary::note(std::string_view sequenceNumber, std::string_view time) {
  _text.resize(_copied);
  _text.append(sequenceNumber);
  _slices[1] = {static_cast<uint32_t>(_copied), static_cast<uint32_t>(_text.size())};
  _record.text = _text.data();
  _record.length = static_cast<uint32_t>(_text.size());
  time = firstCharacters(time, kLastTimeLength);
  std::copy(time.begin(), time.end(), _lastTime);
  _record.lastTime = {_lastTime, time.size()};
}

}  // namespace korvane
