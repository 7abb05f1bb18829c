// The records that wait to be written, in reading order: their texts and slices lie one
// behind another in memory that is kept when the queue is emptied. A steady flow of records
// allocates nothing.
//
// Lifetime: push() copies the record; the views that at() gives are valid until the next push,
// clear or release. Threads: one. It throws std::bad_alloc alone.
#pragma once

#include <cstddef>
#include <vector>

#include "logs/byte_buffer.h"
#include "logs/event_record.h"

namespace korvane {

class RecordQueue {
 public:
  void push(const EventRecord& record);
  size_t size() const { return _records.size(); }
  bool empty() const { return _records.empty(); }
  // The bytes of the lines that wait.
  size_t textBytes() const { return _text.size(); }
  EventRecord at(size_t index) const;
  // The lines of the log that its records stand for.
  uint64_t lines() const { return _lines; }
  // Where in its log the first record's line begins; the queue is not empty.
  int64_t firstLineStart() const { return _records.front().lineStart; }
  void clear();
  // Empties it and gives the memory back.
  void release();

 private:
  struct Entry {
    size_t textAt;
    size_t slicesAt;
    size_t lastTimeAt;
    int64_t lineStart;
    uint32_t length;
    uint32_t fieldCount;
    int32_t count;
    uint8_t lastTimeLength;
    bool quoted;
  };

  std::vector<Entry> _records;
  std::vector<FieldSlice> _slices;
  ByteBuffer _text;
  uint64_t _lines = 0;
};

}  // namespace korvane
