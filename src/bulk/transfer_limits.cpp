// The disk limits of bulk transfer.
#include <algorithm>

#include "bulk/bulk_transfer.h"
#include "bulk/transfer_terms.h"
#include "config/log_settings.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/ignore_result.h"

namespace korvane::bulk {

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

}  // namespace korvane::bulk
