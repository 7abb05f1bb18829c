#include "logs/log_processor.h"

#include <algorithm>
#include <cstdlib>

#include "config/log_names.h"
#include "config/log_settings.h"
#include "logs/spent_log.h"
#include "platform/clock.h"

namespace korvane {
namespace {

constexpr int kIdleMarkers = 500;
// Passes without a record after which the buffers go back to the system.
constexpr int kIdlePasses = 5;
constexpr int64_t kMsPerMinute = 60 * 1000;
// Of the two codes that a server drops a batch with.
constexpr int kDroppedSilently = 600;

}  // namespace

LogProcessor::LogProcessor(LogType type, const ForwardingParts& parts,
                           std::unique_ptr<LogDestination> destination)
    : _type(type),
      _parts(parts),
      _stop(&parts.stop),
      _reader(type, parts),
      _writer(parts.machine, parts.clock, logBaseName(type), std::move(destination)),
      _recordBytes(_writer.recordBytes()) {
  _writer.setMeanwhile([this] { _reader.noteNames(); });
  // The pointer may come to stand at a queued record, and at the first repeat in the summary.
  _reader.account().setBoundary(
      [this] { return 2 * uint64_t{_queue.size()} + uint64_t{_summary.holdsRepeats()}; });
}

LogProcessor::~LogProcessor() = default;

bool LogProcessor::tick() {
  if (++_ticks <= 1) return false;
  _ticks = 0;
  return true;
}

void LogProcessor::tend() {
  _reader.noteNames();
  _writer.tend();
}

int LogProcessor::readRecords() {
  _batchLimit = static_cast<size_t>(std::max(_parts.settings.getMaxBatchSize(_type), 1));
  _readLimit = _parts.settings.getMaxMessagesToRead(_type);
  _folding = _parts.settings.consolidateLogs();
  _passStartMs = _parts.clock.monotonicMs();
  _reader.noteNames();
  if (_queue.size() >= _batchLimit) return 0;
  if (_recordBytes) _notes = _writer.notes();
  removeLeftOver();
  int readCount = 0;
  ForwardingCounters::Pass counted(_parts.counters);
  _readCounted = 0;
  ParsedEvent record;
  while (mayReadOn(readCount) && _reader.next(record)) {
    if (isDataRecord(record))
      handleEvent(record, counted);
    else
      handleMarker(counted);
    ++readCount;
  }
  flushOldSummary();
  countRead(counted);
  settleLosses();
  finishPass();
  _reader.account().publish(held());
  _idlePasses = readCount > 0 ? 0 : _idlePasses + 1;
  releaseMemoryWhenIdle();
  return readCount;
}

bool LogProcessor::mayReadOn(int readCount) const {
  if (readCount > _readLimit || _queue.size() >= _batchLimit) return false;
  return _queuedBytes < kQueueBytes && _queue.textBytes() < kQueueTextBytes;
}

bool LogProcessor::isDataRecord(const EventRecord& record) const {
  return _type == HIDS_RT_LOG && !record.isEndOfFile() && !record.isStartOfFile();
}

void LogProcessor::handleMarker(ForwardingCounters::Pass& counted) {
  flushSummary();
  if (_idle++ <= kIdleMarkers) return;
  countRead(counted);
  _reader.savePointer(undeliveredFrom(), held());
  _idle = 0;
}

void LogProcessor::countRead(const ForwardingCounters::Pass& counted) {
  _reader.account().addRead(counted.read - _readCounted);
  _readCounted = counted.read;
}

// What the account has as read and neither delivered nor lost.
uint64_t LogProcessor::held() const {
  return _queue.lines() + (_summary.holdsRepeats() ? _summary.record().lines() : 0);
}

void LogProcessor::handleEvent(const EventRecord& record, ForwardingCounters::Pass& counted) {
  _idle = 0;
  ++counted.read;
  if (!_folding || !_filter.passes(record.field(1))) {
    flushSummary();
    enqueue(record);
  } else if (_summary.matches(record)) {
    _summary.fold(record);
    ++counted.folded;
  } else {
    flushSummary();
    enqueue(record);
    _summary.begin(record, _passStartMs);
  }
}

void LogProcessor::enqueue(const EventRecord& record) {
  _queue.push(record);
  if (_recordBytes) _queuedBytes += _recordBytes(record, *_notes);
}

void LogProcessor::flushSummary() {
  if (_summary.holdsRepeats()) enqueue(_summary.record());
  _summary.close();
}

void LogProcessor::flushOldSummary() {
  const int64_t period = int64_t{_parts.settings.getLogConsolidatePeriod()} * kMsPerMinute;
  if (_summary.open() && _parts.clock.monotonicMs() - _summary.startedMs() >= period)
    flushSummary();
}

// Lines that were lost do not wait for a batch behind which they could be past.
void LogProcessor::settleLosses() {
  if (_queue.empty() && _reader.account().lostBefore(undeliveredFrom()))
    _reader.savePointer(undeliveredFrom(), held());
}

// What is to be done with the log itself when nothing of it waits any more.
void LogProcessor::finishPass() {
  if (_reader.atEnd()) {
    if (_queue.empty()) leaveFinishedLog();
    return;
  }
  const auto successor = _reader.successor();
  if (!successor) return;
  flushSummary();
  if (_queue.empty()) _reader.switchTo(*successor);
}

// The first line whose event nobody has yet.
int64_t LogProcessor::undeliveredFrom() const {
  if (!_queue.empty()) return _queue.firstLineStart();
  return _summary.holdsRepeats() ? _summary.firstRepeatStart() : _reader.position();
}

int LogProcessor::writeRecords() {
  if (_queue.empty()) return 0;
  if (_refused) _parts.counters.addRetried();
  const int error = _writer.write(_queue);
  _refused = error != 0;
  if (_refused) return -std::abs(error);
  const auto written = static_cast<int>(_queue.size());
  countDelivered();
  if (_reader.atEnd())
    leaveFinishedLog();
  else
    _reader.savePointer(undeliveredFrom(), held());
  _reader.account().publish(held());
  return written;
}

// The queue is out of the agent's hands, one way or the other.
void LogProcessor::countDelivered() {
  const int droppedAs = _writer.droppedAs();
  const uint64_t lines = _queue.lines();
  const int64_t from = _queue.firstLineStart();
  _queue.clear();
  _queuedBytes = 0;
  if (droppedAs == 0) return _reader.account().addDelivered(lines);
  _reader.account().loseHeld(
      droppedAs == kDroppedSilently ? LossCause::serverRejected : LossCause::serverDropped,
      _reader.currentLogName().toUtf8(), _reader.identity(), lines, from, undeliveredFrom());
}

void LogProcessor::leaveFinishedLog() {
  const LogReader::FinishedLog finished = _reader.moveOn();
  if (!finished.stillThere || PostRealTimeProcessing(finished.name))
    _reader.forget(finished);
  else
    _reader.stayAt(finished);
}

void LogProcessor::removeLeftOver() {
  const auto finished = _reader.leftOver();
  if (finished && !PostRealTimeProcessing(finished->name)) _reader.stayAt(*finished);
}

void LogProcessor::releaseMemoryWhenIdle() {
  if (_idlePasses != kIdlePasses || !_queue.empty()) return;
  _queue.release();
  _writer.releaseMemory();
  _reader.releaseMemory();
}

bool LogProcessor::PostRealTimeProcessing(const STRING& file) {
  if (_type != HIDS_RT_LOG) return false;
  return _parts.settings.deleteLogs() ? removeSpentLog(_parts.files, file, *_stop)
                                      : keepSpentLog(_parts.files, file);
}

}  // namespace korvane
