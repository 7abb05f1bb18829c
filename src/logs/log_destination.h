// Where batches of records go. A destination is owned by its LogWriter and used by one thread.
#pragma once

#include <functional>
#include <utility>

#include "logs/field_map.h"
#include "logs/record_queue.h"

namespace korvane {

// One batch: the records, and what the agent adds to each. Refers to its writer's memory. Each
// destination makes the message of it that it sends.
struct LogBatch {
  const RecordQueue& records;
  const RecordNotes& notes;
};

class LogDestination {
 public:
  virtual ~LogDestination() = default;
  // 0 when the batch has been delivered; an error code otherwise.
  [[nodiscard]] virtual int writeLog(const LogBatch& batch) = 0;
  // The server's code when the batch that writeLog() last returned 0 for was not taken but dropped on
  // its word (302, 600); else 0.
  virtual int droppedAs() const { return 0; }
  // What a record adds to a message, where a message is bounded (LogProcessor::kQueueBytes); null
  // where it is not.
  using RecordBytes = size_t (*)(const EventRecord& record, const RecordNotes& notes);
  virtual RecordBytes recordBytes() const { return nullptr; }
  // Looks after a connection that is kept between batches; called about once a second. Never waits
  // for long.
  virtual void tend() {}
  // Gives the memory of the last message back until the next.
  virtual void releaseMemory() {}
  // What is done about once a second while writeLog() waits for somebody.
  void setMeanwhile(std::function<void()> meanwhile) { _meanwhile = std::move(meanwhile); }

 protected:
  std::function<void()> _meanwhile = [] {};
};

}  // namespace korvane
