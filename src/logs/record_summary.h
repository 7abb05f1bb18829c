// The open summary of a run of identical events. It begins as a copy of the run's first record,
// with the count 1, while that record itself is queued; each repeat is folded into it. One thread.
#pragma once

#include <cstdint>

#include "logs/byte_buffer.h"
#include "logs/event_record.h"

namespace korvane {

class RecordSummary {
 public:
  bool open() const { return _open; }
  // True when repeats have been folded in, so that the summary itself has to be sent.
  bool holdsRepeats() const { return _open && _record.count > 1; }
  bool matches(const EventRecord& record) const;
  const EventRecord& record() const { return _record; }
  // Where in its log the first repeat's line begins.
  int64_t firstRepeatStart() const { return _record.lineStart; }
  int64_t startedMs() const { return _startedMs; }

  // Begins a run with a record that is sent on its own.
  void begin(const EventRecord& first, int64_t nowMs);
  // Folds a repeat in. The first repeat takes the place of the copy, time and all.
  void fold(const EventRecord& repeat);
  void close() { _open = false; }

 private:
  void copy(const EventRecord& record);
  void note(std::string_view sequenceNumber, std::string_view time);

  bool _open = false;
  EventRecord _record;  // refers to the members below
  FieldSlice _slices[kMaxFields];
  ByteBuffer _text;  // the copied text, and behind it the last sequence number
  size_t _copied = 0;
  char _lastTime[3 * kLastTimeLength];
  int64_t _startedMs = 0;  // monotonic
};

}  // namespace korvane
