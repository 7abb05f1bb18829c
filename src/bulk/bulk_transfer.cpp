#include "bulk/bulk_transfer.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "bulk/transfer_terms.h"
#include "config/log_settings.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/ignore_result.h"

namespace korvane::bulk {
namespace {

constexpr char kFolder[] = "bulk";
constexpr char kStateName[] = "bulk.state";
constexpr int kMaxNames = 1000;  // of a log that is set aside

}  // namespace

BulkTransfer::BulkTransfer(const Parts& parts, std::function<bool()> stopped)
    : _parts(parts),
      _stopped(std::move(stopped)),
      _statePath(platform::joinPath(parts.files, {parts.home, kFolder, kStateName})),
      _finder(parts),
      _book(parts),
      _bundles(parts.files, parts.clock, platform::joinPath(parts.files, {parts.home, kFolder})) {}

uint32_t BulkTransfer::idleSeconds() const {
  return within(_parts.settings.getBulkTransferIdleInterval(), 1, kMaxSeconds);
}

uint32_t BulkTransfer::backlogSeconds() const {
  return within(_parts.settings.getBulkTransferBacklogInterval(), 0, kMaxSeconds);
}

uint32_t BulkTransfer::look() {
  if (_parts.settings.deleteLogs()) removeSentCopies();
  const bool sends = _parts.send && _parts.settings.bulkTransferEnabled();
  const bool full = isOver(_parts.settings.getLogDiskUpperLimit());
  if (!sends && !full) return idleSeconds();
  load();
  const bool saved = bringUpToDate();
  // On a full disk the state can perhaps be written only then.
  if (full) makeRoom();
  return sends && saved ? packAndOffer() : idleSeconds();
}

// The state

void BulkTransfer::load() {
  if (_loaded) return;
  _loaded = true;
  const int error = readState(_parts.files, _statePath, _state);
  if (error != 0 && error != ENOENT)
    eventlog::event(EventId::bulkStateUnusable, kBulkTag, {_statePath, errorText(error)});
  _bundles.removeOthers(_state.bundle ? _state.bundle->name : "");
}

bool BulkTransfer::save(const State& state) {
  int error = _parts.files.makeDirectories(platform::directoryOf(_statePath));
  if (error == 0) error = writeState(_parts.files, _statePath, state);
  if (error == 0) {
    _unsaved = false;
    fine(EventId::bulkStateNotWritten);
    return true;
  }
  report(EventId::bulkStateNotWritten, _statePath, errorText(error));
  return false;
}

bool BulkTransfer::bringUpToDate() {
  State next = _state;
  const bool changed =
      _book.update(_finder.finished(), next.logs, [this](const LogRecord& log, Loss::Cause cause) {
        const uint64_t from = std::max(log.position, packedUpTo(log));
        if (from < log.size) lose(log, cause, from);
      });
  _unsaved = _unsaved || changed;
  // What was seen is known from now on, whether or not the disk has it.
  _state.logs = std::move(next.logs);
  return !_unsaved || save(_state);
}

// The end of what the bundle under way has of a log; 0 when it has nothing.
uint64_t BulkTransfer::packedUpTo(const LogRecord& log) const {
  if (!_state.bundle) return 0;
  for (const Part& part : _state.bundle->parts)
    if (part.log == log.id) return part.to;
  return 0;
}

void BulkTransfer::lose(const LogRecord& log, Loss::Cause cause, uint64_t from) {
  const EventId event =
      cause == Loss::Cause::diskLimit ? EventId::logRemovedForSpace : EventId::logGoneUnsent;
  eventlog::event(event, kBulkTag, {log.path, from, log.size});
  if (_parts.lost) _parts.lost({log.path, cause, from, log.size, log.modifiedMs(), log.identity});
}

void BulkTransfer::report(EventId event, const std::string& about, const std::string& reason) {
  if (_reported.emplace(event, reason).second) eventlog::event(event, kBulkTag, {about, reason});
}

// What is the server's already

void BulkTransfer::removeSentCopies() {
  for (const FoundLog& copy : _finder.sentCopies()) ignoreResult(_parts.files.remove(copy.path));
}

bool BulkTransfer::mayRemove(const LogRecord& log) const {
  return log.kind != Kind::external && log.isSent() && _book.isThere(log) && _book.isSettled(log) &&
         _book.isUnchanged(log);
}

// Their records go at a later look, when nothing can bring them back.
void BulkTransfer::leaveSentLogs() {
  const bool removed = _parts.settings.deleteLogs();
  for (const LogRecord& log : _state.logs) {
    if (!mayRemove(log)) continue;
    if (removed)
      ignoreResult(_parts.files.remove(log.path));
    else if (log.kind != Kind::agent)
      setAside(log.path);
  }
}

// The own log has a bound of its own by its names; what others write would fill the list of logs.
void BulkTransfer::setAside(const std::string& path) {
  std::string to = path + ".sent";
  for (int number = 2; number < kMaxNames; ++number) {
    if (_parts.files.rename(path, to) != EEXIST) return;
    to = path + ".sent." + std::to_string(number);
  }
}

}  // namespace korvane::bulk
