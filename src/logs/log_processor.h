// Forwards one log: reads records, folds runs of identical events into summaries, queues,
// and writes the queue through a writer. A reading pass and a writing pass make one round;
// the log processing thread runs them.
//
// Folding: the first record of a run is queued at once; its repeats are counted in a summary,
// which is queued when another event comes, when a marker record comes, or when the
// consolidation period (minutes, monotonic clock) is over. A record that does not pass the
// forwarding filter is queued unfolded; nothing is ever dropped but what the log rules keep
// back, which is as if it were not in the log. Only records of the real-time log are sent, its MEOF
// and MSOF markers not.
// Position: the saved one is always the line of the first event that has not been delivered, so a
// process that is killed loses nothing and repeats at most the batch in flight and the open run.
//
// Lifetime: owns reader, writer and queue; its parts outlive it. Threads: one. Stop: nothing has to
// be done; the queue is read again from the log at the next start. Errors: AgentError and FileError
// from reader and pointer.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "agent/thread/stop_token.h"
#include "logs/event_category.h"
#include "logs/forwarding_counters.h"
#include "logs/forwarding_parts.h"
#include "logs/log_reader.h"
#include "logs/log_writer.h"
#include "logs/record_queue.h"
#include "logs/record_summary.h"
#include "logs/rule_filter.h"

namespace korvane {

class LogProcessor {
 public:
  LogProcessor(LogType type, const ForwardingParts& parts,
               std::unique_ptr<LogDestination> destination);
  virtual ~LogProcessor();
  // Removes a real-time log that has been sent; where that fails, it is renamed. True when the name
  // is free then. Does nothing for logs of other types.
  [[nodiscard]] virtual bool PostRealTimeProcessing(const STRING& file);

  // Reads and queues records; returns how many were read.
  int readRecords();
  // Writes the queue; returns the number of records written, 0 when there were none, or the
  // negative of the destination's error code; the records then stay queued.
  [[nodiscard]] int writeRecords();

  LogType type() const { return _type; }
  bool enabled() const { return _enabled; }
  void disable() { _enabled = false; }
  // Looks after the names of the logs to come and the destination's connection; not while a
  // batch is being written.
  void tend();
  // Counts a cycle; true on every second one.
  bool tick();
  // What cuts the pause between two tries to remove a file short; the agent's until set.
  void setStopToken(StopToken& token) { _stop = &token; }
  size_t queued() const { return _queue.size(); }

  // Where the destination's messages are bounded, nothing is read while the queue holds so many
  // bytes, as they are sent: the queue is one message.
  static constexpr size_t kQueueBytes = 1400000;
  // Nor while the lines that wait have so many bytes, whatever the destination: some twenty times
  // what a full batch of common events has, so that only very long ones make smaller batches.
  static constexpr size_t kQueueTextBytes = 4 << 20;

 private:
  bool mayReadOn(int readCount) const;
  void handleMarker(ForwardingCounters::Pass& counted);
  void countRead(const ForwardingCounters::Pass& counted);
  void countDelivered();
  uint64_t held() const;
  void handleEvent(const EventRecord& record, ForwardingCounters::Pass& counted);
  void enqueue(const EventRecord& record);
  void flushSummary();
  void flushOldSummary();
  void settleLosses();
  void finishPass();
  void leaveFinishedLog();
  void removeLeftOver();
  // Of what is neither sent nor folded: markers, and events that a rule keeps back.
  void passOver(const ForwardingCounters::Pass& counted);
  int64_t undeliveredFrom() const;
  void releaseMemoryWhenIdle();
  bool isDataRecord(const EventRecord& record) const;

  const LogType _type;
  const ForwardingParts _parts;
  StopToken* _stop;
  LogReader _reader;
  LogWriter _writer;
  const LogDestination::RecordBytes _recordBytes;  // null: the queue's bytes are not counted
  ForwardFilter _filter;
  RuleFilter _rules;
  RecordQueue _queue;
  RecordSummary _summary;
  bool _enabled = true;
  int _ticks = 0;
  int _idle = 0;              // passed over since the last event
  int _idlePasses = 0;        // passes that read nothing
  uint64_t _readCounted = 0;  // of this pass's events, those that the account has
  bool _refused = false;      // the last batch was not delivered
  size_t _queuedBytes = 0;
  std::optional<RecordNotes> _notes;  // of this pass, for that count
  size_t _batchLimit = 0;
  int _readLimit = 0;
  bool _folding = false;
  int64_t _passStartMs = 0;
};

}  // namespace korvane
