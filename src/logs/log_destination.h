// Where batches of records go. A destination is owned by its LogWriter and used by one thread.
#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "comm/message_body.h"
#include "logs/field_map.h"
#include "logs/record_queue.h"
#include "util/property_list.h"

namespace korvane {

// One batch: the records, and the finished message body made of them. Refers to its
// writer's memory.
struct LogBatch {
  const RecordQueue& records;
  const RecordNotes& notes;
  const MessageBody& body;
  // The records as lists of pairs, equal to what the body says.
  std::vector<PropertyList> pairs() const;
};

class LogDestination {
 public:
  virtual ~LogDestination() = default;
  // 0 when the batch, one list of (name, value) pairs a record, has been delivered; an error code
  // otherwise.
  [[nodiscard]] virtual int writeLog(const std::vector<PropertyList>& batch) = 0;
  // The same for a batch whose body is made already.
  [[nodiscard]] virtual int writeBatch(const LogBatch& batch) { return writeLog(batch.pairs()); }
  // Whether writeBatch() uses the batch's body; it is empty otherwise.
  virtual bool takesBody() const { return true; }
  // Looks after a connection that is kept between batches; called about once a second. Never waits
  // for long.
  virtual void tend() {}
  // What is done about once a second while writeBatch() waits for somebody.
  void setMeanwhile(std::function<void()> meanwhile) { _meanwhile = std::move(meanwhile); }

 protected:
  std::function<void()> _meanwhile = [] {};
};

// The destination of the run's service type: the management server for type 1, the local event
// channel for any other, where a batch goes only while `mayForward` says so.
[[nodiscard]] std::unique_ptr<LogDestination> makeLogDestination(std::function<bool()> mayForward);

}  // namespace korvane
