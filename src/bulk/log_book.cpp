#include "bulk/log_book.h"

#include <algorithm>
#include <cerrno>
#include <tuple>
#include <utility>

#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "util/sha256.h"

namespace korvane::bulk {
namespace {

constexpr size_t kMostLine = 200;  // of a log's line in the state, beside its path

bool describes(const LogRecord& log, const platform::FileInfo& info) {
  return log.identity == info.identity && log.size == info.size &&
         log.modifiedNs == info.modifiedNs;
}

}  // namespace

bool LogBook::update(std::vector<FoundLog> found, std::vector<LogRecord>& records,
                     const std::function<void(const LogRecord&, Loss::Cause)>& lost) {
  const std::vector<LogRecord> before = std::exchange(records, {});
  _there.clear();
  _settling = false;
  std::sort(found.begin(), found.end(), [](const FoundLog& a, const FoundLog& b) {
    return std::tie(a.info.modifiedNs, a.path) < std::tie(b.info.modifiedNs, b.path);
  });
  std::multimap<std::pair<Kind, uint64_t>, FoundLog*> files;
  for (FoundLog& file : found) files.emplace(std::pair(file.kind, file.info.identity), &file);
  std::set<const FoundLog*> taken;
  std::set<std::string> flushed;
  for (const LogRecord& was : before) {
    LogRecord log = was;
    // One file may have two names.
    const FoundLog* at = nullptr;
    const auto [first, last] = files.equal_range({log.kind, log.identity});
    for (auto other = first; other != last; ++other)
      if (!taken.contains(other->second) && (!at || other->second->path == log.path))
        at = other->second;
    if (at && follow(log, *at)) {
      taken.insert(at);
      note(log);
      records.push_back(std::move(log));
      continue;
    }
    Loss::Cause cause = Loss::Cause::logGone;
    if (!isGone(log, cause) || !isGoneForGood(log, flushed)) {
      records.push_back(std::move(log));
    } else if (!log.isSent()) {
      lost(log, cause);
    }
  }
  size_t bytes = 0;
  for (const LogRecord& log : records) bytes += kMostLine + log.path.size();
  for (const FoundLog& file : found) {
    if (taken.contains(&file) || records.size() >= kMaxLogs) continue;
    bytes += kMostLine + file.path.size();
    if (bytes > kMaxStateBytes / 2) continue;
    LogRecord log{.kind = file.kind,
                  .id = _parts.files.freshName(),
                  .identity = file.info.identity,
                  .size = file.info.size,
                  .modifiedNs = file.info.modifiedNs,
                  .head = {},
                  .path = file.path};
    if (!fillHead(log)) continue;
    note(log);
    records.push_back(std::move(log));
  }
  std::erase_if(_sights, [&](const auto& sight) { return !_there.contains(sight.first); });
  return records != before;
}

bool LogBook::follow(LogRecord& log, const FoundLog& file) const {
  const bool unchanged = describes(log, file.info);
  if (!unchanged && !isSame(log, file)) return false;
  log.path = file.path;
  if (unchanged) return true;
  log.size = file.info.size;
  log.modifiedNs = file.info.modifiedNs;
  return log.headBytes == kMaxHead || fillHead(log);
}

bool LogBook::isSame(const LogRecord& log, const FoundLog& file) const {
  std::string head;
  return file.info.size >= log.position && file.info.size >= log.size &&
         readHead(file.path, log.headBytes, head) && head == log.head;
}

bool LogBook::readHead(const std::string& path, uint32_t bytes, std::string& out) const {
  std::unique_ptr<platform::File> file;
  std::string head(bytes, '\0');
  if (const int error = _parts.files.open(path, platform::OpenMode::read, file)) {
    eventlog::trace("LogBook", "%s cannot be read: error %d", path, error);
    return false;
  }
  for (size_t total = 0, got = 0; total < bytes; total += got)
    if (file->read(head.data() + total, bytes - total, got) != 0 || got == 0) return false;
  out = sha256Hex(head).substr(0, kHeadDigits);
  return true;
}

bool LogBook::fillHead(LogRecord& log) const {
  log.headBytes = static_cast<uint32_t>(std::min<uint64_t>(log.size, kMaxHead));
  return readHead(log.path, log.headBytes, log.head);
}

bool LogBook::isGone(const LogRecord& log, Loss::Cause& cause) const {
  platform::FileInfo info;
  const int error = _parts.files.info(log.path, info);
  if (error == ENOENT || error == ENOTDIR) return true;
  if (error != 0) return false;
  FoundLog file{log.kind, log.path, info};
  if (describes(log, info) || (info.identity == log.identity && isSame(log, file))) return false;
  // A file that cannot be read tells nothing.
  std::string head;
  cause = Loss::Cause::logReplaced;
  return info.identity != log.identity || readHead(log.path, 0, head);
}

bool LogBook::isGoneForGood(const LogRecord& log, std::set<std::string>& flushed) const {
  const std::string folder = platform::directoryOf(log.path);
  if (flushed.contains(folder)) return true;
  const int error = _parts.files.flushDirectory(folder);
  if (error != 0 && error != ENOENT) return false;
  flushed.insert(folder);
  return true;
}

void LogBook::note(const LogRecord& log) {
  _there.insert(log.id);
  Sight& sight = _sights[log.id];
  if (sight.sinceMs == 0 || sight.size != log.size || sight.modifiedNs != log.modifiedNs)
    sight = {log.size, log.modifiedNs, std::max<int64_t>(1, _parts.clock.monotonicMs())};
  _settling = _settling || (log.kind != Kind::external && !isSettled(log));
}

bool LogBook::isSettled(const LogRecord& log) const {
  if (log.kind == Kind::agent) return true;
  const auto sight = _sights.find(log.id);
  return sight != _sights.end() && _parts.clock.monotonicMs() - sight->second.sinceMs >= kSettleMs;
}

bool LogBook::isUnchanged(const LogRecord& log) const {
  platform::FileInfo info;
  return _parts.files.info(log.path, info) == 0 && describes(log, info);
}

}  // namespace korvane::bulk
