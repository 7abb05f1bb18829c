#include "logs/record_queue.h"

namespace korvane {

void RecordQueue::push(const EventRecord& record) {
  Entry entry{.textAt = _text.size(),
              .slicesAt = _slices.size(),
              .lastTimeAt = _text.size() + record.length,
              .lineStart = record.lineStart,
              .length = record.length,
              .fieldCount = record.fieldCount,
              .count = record.count,
              .lastTimeLength = static_cast<uint8_t>(record.lastTime.size()),
              .quoted = record.quoted};
  _text.append(record.text, record.length);
  if (!record.lastTime.empty()) _text.append(record.lastTime);
  _slices.insert(_slices.end(), record.fields, record.fields + record.fieldCount);
  _records.push_back(entry);
  _lines += record.lines();
}

EventRecord RecordQueue::at(size_t index) const {
  const Entry& entry = _records[index];
  EventRecord record;
  record.text = _text.data() + entry.textAt;
  record.length = entry.length;
  record.fieldCount = entry.fieldCount;
  record.fields = _slices.data() + entry.slicesAt;
  record.quoted = entry.quoted;
  record.count = entry.count;
  record.lastTime = {_text.data() + entry.lastTimeAt, entry.lastTimeLength};
  record.lineStart = entry.lineStart;
  return record;
}

void RecordQueue::clear() {
  _records.clear();
  _lines = 0;
  _slices.clear();
  _text.clear();
}

void RecordQueue::release() {
  _records = {};
  _lines = 0;
  _slices = {};
  _text.release();
}

}  // namespace korvane
