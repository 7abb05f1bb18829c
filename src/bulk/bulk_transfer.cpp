#include "bulk/bulk_transfer.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <tuple>
#include <utility>

#include "bulk/log_names.h"
#include "config/log_settings.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/ignore_result.h"

namespace korvane::bulk {
namespace {

constexpr char kBulkTag[] = "BulkLogProcessingThread";
constexpr char kFolder[] = "bulk";
constexpr char kStateName[] = "bulk.state";
constexpr int kMaxNames = 1000;  // of a log that is set aside
constexpr uint32_t kSettleSeconds = LogBook::kSettleMs / 1000;

std::string errorText(int error) {
  return "error " + std::to_string(error);
}

uint32_t within(int32_t value, uint32_t least, uint32_t most) {
  return std::clamp(static_cast<uint32_t>(std::max(value, 0)), least, most);
}

bool oldestFirst(const LogRecord* a, const LogRecord* b) {
  return std::tie(a->modifiedNs, a->path) < std::tie(b->modifiedNs, b->path);
}

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

// Disk limits

bool BulkTransfer::isOver(int32_t percent) const {
  uint64_t free = 0;
  uint64_t total = 0;
  const std::string logs = platform::joinPath(_parts.files, {_parts.home, "logs"});
  if (percent < 1 || percent > 100 || _parts.files.freeBytes(logs, free) != 0 ||
      _parts.files.totalBytes(logs, total) != 0 || total == 0)
    return false;
  const double used = 1.0 - static_cast<double>(std::min(free, total)) / static_cast<double>(total);
  return used * 100 >= percent;
}

void BulkTransfer::makeRoom() {
  const int32_t lower =
      std::min(_parts.settings.getLogDiskLowerLimit(), _parts.settings.getLogDiskUpperLimit());
  // Down to it and no further: one percent more is over.
  const auto enough = [&] { return _stopped() || !isOver(std::clamp(lower, 0, 99) + 1); };
  std::vector<FoundLog> copies = _finder.sentCopies();
  std::sort(copies.begin(), copies.end(), [](const FoundLog& a, const FoundLog& b) {
    return a.info.modifiedNs < b.info.modifiedNs;
  });
  for (const FoundLog& copy : copies) {
    if (enough()) return;
    ignoreResult(_parts.files.remove(copy.path));
  }
  std::vector<const LogRecord*> sent, unsent;
  for (const LogRecord& log : _state.logs)
    if (log.kind != Kind::external && _book.isThere(log) && packedUpTo(log) == 0)
      (log.isSent() ? sent : unsent).push_back(&log);
  std::sort(sent.begin(), sent.end(), oldestFirst);
  std::sort(unsent.begin(), unsent.end(), oldestFirst);
  std::vector<LogRecord> victims;
  for (const auto* list : {&sent, &unsent})
    for (const LogRecord* log : *list) victims.push_back(*log);
  for (const LogRecord& log : victims) {
    if (enough()) return;
    giveUp(log);
  }
}

// Told first, and counted as dealt with before it is removed: after a crash it is told again with the
// same range, or found gone without a loss.
void BulkTransfer::giveUp(const LogRecord& log) {
  if (!_book.isUnchanged(log)) return;
  if (!log.isSent()) {
    lose(log, Loss::Cause::diskLimit, log.position);
    for (LogRecord& known : _state.logs)
      if (known.id == log.id) known.position = known.size;
    _unsaved = true;
    ignoreResult(save(_state));
  }
  ignoreResult(_parts.files.remove(log.path));
}

// Packing

std::vector<Wanted> BulkTransfer::wanted() const {
  std::vector<const LogRecord*> logs;
  for (const LogRecord& log : _state.logs)
    if (!log.isSent() && _book.isThere(log) && (log.kind == Kind::external || _book.isSettled(log)))
      logs.push_back(&log);
  std::sort(logs.begin(), logs.end(), oldestFirst);
  std::vector<Wanted> wanted;
  for (const LogRecord* log : logs)
    wanted.push_back({*log, log->kind == Kind::external && !_book.isSettled(*log)});
  return wanted;
}

uint32_t BulkTransfer::packAndOffer() {
  if (!_state.bundle) {
    leaveSentLogs();
    const std::vector<Wanted> logs = wanted();
    if (logs.empty()) {
      const bool soon = rollDriverLogs() || _book.isSettling() || std::exchange(_rolled, false);
      return soon ? std::min(kSettleSeconds, idleSeconds()) : idleSeconds();
    }
    if (!pack(logs)) return idleSeconds();
  }
  return offer();
}

bool BulkTransfer::pack(const std::vector<Wanted>& logs) {
  const size_t most = within(_parts.settings.getBulkTransferOpenFileLimit(), 1, kMaxParts);
  // A log that cannot be read does not take the place of one that can.
  std::vector<Wanted> readable;
  for (const Wanted& log : logs) {
    if (readable.size() == most) break;
    std::unique_ptr<platform::File> file;
    if (_parts.files.open(log.log.path, platform::OpenMode::read, file) == 0)
      readable.push_back(log);
  }
  Packed packed;
  const int error = _bundles.pack(readable, _parts.settings.collectSHA256Hash(), _stopped, packed);
  if (error == ECANCELED) return false;
  if (error != 0) {
    report(EventId::logsNotPacked, platform::directoryOf(_statePath), errorText(error));
    return false;
  }
  fine(EventId::logsNotPacked);
  if (packed.bundle.name.empty()) return false;
  State next = _state;
  next.bundle = packed.bundle;
  if (!save(next)) {
    ignoreResult(_bundles.remove(packed.bundle.name));
    return false;
  }
  _state = std::move(next);
  _checked = true;
  _more = !packed.everything || readable.size() < logs.size();
  return true;
}

uint32_t BulkTransfer::offer() {
  const uint32_t later = std::max(backlogSeconds(), kLeastRetrySeconds);
  if (!_checked && !_accepted) {
    if (const int error = _bundles.check(*_state.bundle)) {
      eventlog::event(EventId::bulkStateUnusable, kBulkTag,
                      {_bundles.pathOf(_state.bundle->name), errorText(error)});
      State next = _state;
      next.bundle.reset();
      if (!save(next)) return later;
      ignoreResult(_bundles.remove(std::exchange(_state, std::move(next)).bundle->name));
      return 0;
    }
    _checked = _more = true;
  }
  if (!_accepted) {
    const Offer answer = _parts.send(_bundles.pathOf(_state.bundle->name));
    if (answer.stopped) return later;
    if (!answer.accepted) {
      report(EventId::bundleNotAccepted, _state.bundle->name, answer.reason);
      return later;
    }
    _accepted = true;
    if (fine(EventId::bundleNotAccepted))
      eventlog::event(EventId::bundlesAcceptedAgain, kBulkTag, {_state.bundle->name});
  }
  if (!recordAccepted()) return later;
  leaveSentLogs();
  if (_more) return backlogSeconds();
  return _book.isSettling() ? std::min(kSettleSeconds, idleSeconds()) : idleSeconds();
}

bool BulkTransfer::recordAccepted() {
  State next = _state;
  const Bundle bundle = *std::exchange(next.bundle, std::nullopt);
  ++next.sentBundles;
  for (const Part& part : bundle.parts) {
    next.sentBytes += part.to - part.from;
    for (LogRecord& log : next.logs)
      if (log.id == part.log && log.position == part.from) log.position = part.to;
  }
  if (!save(next)) return false;
  _state = std::move(next);
  _accepted = _checked = false;
  ignoreResult(_bundles.remove(bundle.name));
  return true;
}

// The driver's logs

bool BulkTransfer::rollDriverLogs() {
  const bool event = roll(_parts.driver, false);
  const bool profile = roll(_parts.profile, true);
  return _rolled = event || profile;
}

bool BulkTransfer::roll(const DriverLog& log, bool profile) {
  STRING current;
  platform::FileInfo info;
  if (!log.current || !log.current(current)) return false;
  const std::string path = current.toUtf8();
  if (!platform::isAbsolutePath(path) || _parts.files.info(path, info) != 0 || info.size == 0)
    return false;
  const STRING next = platform::joinPath(
      _parts.files,
      {platform::directoryOf(path), nextName(platform::fileNameOf(path), _parts.clock.wallMs())});
  std::string reason;
  if (!log.roll(next, reason)) {
    report(EventId::driverLogNotRolled, path, reason);
    return false;
  }
  fine(EventId::driverLogNotRolled);
  if (profile)
    _parts.settings.setDriverProfileLogFile(next);
  else
    _parts.settings.setDriverLogFile(next);
  return true;
}

}  // namespace korvane::bulk
