// What waits is packed and offered, and the driver's logs are rolled.
#include <algorithm>
#include <cerrno>
#include <memory>
#include <utility>

#include "bulk/bulk_transfer.h"
#include "bulk/log_names.h"
#include "bulk/transfer_terms.h"
#include "config/log_settings.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/ignore_result.h"

namespace korvane::bulk {
namespace {

constexpr uint32_t kSettleSeconds = LogBook::kSettleMs / 1000;

}  // namespace

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
