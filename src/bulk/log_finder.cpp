#include "bulk/log_finder.h"

#include <algorithm>

#include "bulk/bulk_state.h"
#include "bulk/log_names.h"
#include "config/log_settings.h"
#include "eventlog/event_log.h"
#include "platform/paths.h"
#include "platform/rights.h"

namespace korvane::bulk {
namespace {

constexpr char kFinderTag[] = "LogFinder";

}  // namespace

std::vector<FoundLog> LogFinder::finished() {
  std::vector<FoundLog> found;
  addOwn(found);
  const auto addCurrent = [&](Kind kind, const DriverLog& log) {
    STRING current;
    if (log.current && log.current(current)) addSeries(kind, current.toUtf8(), found);
  };
  addCurrent(Kind::driver, _parts.driver);
  addCurrent(Kind::profile, _parts.profile);
  const std::string ids = _parts.settings.getHIDSLogFile().toUtf8();
  const std::string realTime = _parts.settings.getHIDSRTLogFile().toUtf8();
  // Nothing could tell the two apart: the real-time log may still have to be read.
  if (platform::directoryOf(ids) != platform::directoryOf(realTime) ||
      shapeOf(platform::fileNameOf(ids)) != shapeOf(platform::fileNameOf(realTime)))
    addSeries(Kind::ids, ids, found);
  addExternal(found);
  return found;
}

std::vector<FoundLog> LogFinder::sentCopies() {
  std::vector<FoundLog> found;
  const auto add = [&](Kind kind, const std::string& current) {
    const std::string shape = shapeOf(platform::fileNameOf(current));
    addFrom(platform::directoryOf(current), kind, kMaxOfEntry, found, [&](const std::string& name) {
      const std::string_view kept = nameOfSent(name);
      return !kept.empty() && shapeOf(kept) == shape;
    });
  };
  STRING current;
  add(Kind::ids, _parts.settings.getHIDSRTLogFile().toUtf8());
  add(Kind::ids, _parts.settings.getHIDSLogFile().toUtf8());
  if (_parts.driver.current && _parts.driver.current(current)) add(Kind::driver, current.toUtf8());
  if (_parts.profile.current && _parts.profile.current(current))
    add(Kind::profile, current.toUtf8());
  return found;
}

void LogFinder::addOwn(std::vector<FoundLog>& out) {
  const std::string current = platform::fileNameOf(_parts.ownLog());
  // Before the log is open nothing tells which file it is.
  if (current.empty()) return;
  addFrom(platform::joinPath(_parts.files, {_parts.home, "logs"}), Kind::agent, kMaxOfEntry, out,
          [&](const std::string& name) { return isOwnLog(name) && name != current; });
}

void LogFinder::addSeries(Kind kind, const std::string& current, std::vector<FoundLog>& out) {
  if (!platform::isAbsolutePath(current)) return;
  const std::string name = platform::fileNameOf(current);
  const std::string shape = shapeOf(name);
  const size_t before = out.size();
  addFrom(platform::directoryOf(current), kind, kMaxOfEntry, out,
          [&](const std::string& other) { return other != name && shapeOf(other) == shape; });
  // The log being written under another spelling of its name.
  platform::FileInfo writing;
  if (_parts.files.info(current, writing) != 0) return;
  out.erase(
      std::remove_if(out.begin() + static_cast<std::ptrdiff_t>(before), out.end(),
                     [&](const FoundLog& log) { return log.info.identity == writing.identity; }),
      out.end());
}

void LogFinder::addExternal(std::vector<FoundLog>& out) {
  const STRING setting = _parts.settings.getExternalLogs();
  if (setting != _external) {
    _external = setting;
    _refused.clear();
  }
  if (setting.empty()) return;
  std::vector<std::string> entries = entriesOf(setting.toUtf8());
  if (entries.size() > kMaxEntries) {
    refuse(entries[kMaxEntries], "there are more than " + std::to_string(kMaxEntries) + " entries");
    entries.resize(kMaxEntries);
  }
  for (const std::string& entry : entries) addEntry(entry, out);
}

void LogFinder::addEntry(const std::string& entry, std::vector<FoundLog>& out) {
  std::string fault = entryFault(entry);
  if (!fault.empty()) return refuse(entry, fault);
  const std::string path = platform::isAbsolutePath(entry)
                               ? entry
                               : platform::joinPath(_parts.files, {_parts.home, entry});
  const std::string folder = platform::directoryOf(path);
  // Whoever may put a link there would choose which file the agent reads.
  fault = _parts.rights.refusal(folder);
  if (!fault.empty()) return refuse(entry, fault);
  const std::string pattern = platform::fileNameOf(path);
  addFrom(folder, Kind::external, kMaxOfEntry, out,
          [&](const std::string& name) { return matches(pattern, name); });
}

template <class Wanted>
void LogFinder::addFrom(const std::string& folder, Kind kind, size_t most,
                        std::vector<FoundLog>& out, Wanted wanted) {
  std::vector<platform::DirectoryEntry> entries;
  std::string leadsTo;
  if (folder.empty() || _parts.files.list(folder, entries) != 0 ||
      _parts.files.resolve(folder, leadsTo) != 0)
    return;
  size_t added = 0;
  for (const platform::DirectoryEntry& entry : entries) {
    if (entry.isDirectory || !wanted(entry.name)) continue;
    FoundLog log{kind, platform::joinPath(_parts.files, {folder, entry.name}), {}};
    std::string there;
    if (!fitsLine(log.path) || _parts.files.resolve(log.path, there) != 0 ||
        there != platform::joinPath(_parts.files, {leadsTo, entry.name}) ||
        _parts.files.info(log.path, log.info) != 0 || log.info.isDirectory)
      continue;
    const bool known = std::any_of(out.begin(), out.end(),
                                   [&](const FoundLog& other) { return other.path == log.path; });
    if (known) continue;
    if (added++ == most || out.size() == kMaxLogs) break;
    out.push_back(std::move(log));
  }
}

void LogFinder::refuse(const std::string& entry, const std::string& reason) {
  if (_refused.insert(entry).second)
    eventlog::event(EventId::externalLogNotFollowed, kFinderTag, {entry, reason});
}

}  // namespace korvane::bulk
