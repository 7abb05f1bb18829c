// How the store meets its files: loading, writing, and what another process changed in between.
#include <algorithm>
#include <utility>

#include "config/log_names.h"
#include "config/masking.h"
#include "config/settings_store.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "util/ignore_result.h"
#include "util/sha256.h"

namespace korvane {
namespace {

constexpr int64_t kWriteRetryMs = 10000;
// Of the values that are refused, how many an event names, and how much of each.
constexpr size_t kMaxToldValues = 10;
constexpr size_t kMaxToldBytes = 80;

bool isDamage(IniFault fault) {
  return fault == IniFault::tooLarge || fault == IniFault::notText || fault == IniFault::corrupt;
}

}  // namespace

int64_t SettingsStore::now() const {
  return _clock.monotonicMs();
}

bool SettingsStore::dirty() const {
  return settings.dirty() || communication.dirty();
}

bool SettingsStore::upToDate() {
  const FileStamp stamp = files.stampOf(files.agentIni());
  const Synchronized hold(lock);
  return everRead && stamp == agentIni.stamp && (!dirty() || now() < nextRetryMs);
}

std::unique_ptr<platform::FileLock> SettingsStore::acquireLockFile(std::string_view tag,
                                                                   uint32_t pauseMs) {
  int error = 0;
  auto held = files.lock(tag, error, pauseMs);
  const Synchronized hold(lock);
  const bool told = std::exchange(toldNoLockFile, !held);
  if (!held && !told && files.usable())
    eventlog::event(EventId::lockFileNotAcquired, tag, {files.lockFile(), error});
  return held;
}

// One event for all of them; values that are secrets are not shown.
void SettingsStore::tellRefused(std::string_view tag, const PropertyList& refused,
                                const std::string& path) {
  if (refused.empty()) return;
  std::string list;
  for (size_t i = 0; i < std::min(refused.size(), kMaxToldValues); ++i) {
    const std::string name = refused[i].first.toUtf8();
    const std::string value = maskedSetting(name, refused[i].second.toUtf8());
    list += (i == 0 ? "" : ", ") + name + "=" + value.substr(0, kMaxToldBytes);
  }
  if (refused.size() > kMaxToldValues) list += ", ...";
  eventlog::event(EventId::settingValuesIgnored, tag, {refused.size(), path, list});
}

bool SettingsStore::mergeNVPData(std::string_view tag, const IniText& file,
                                 const std::string& path) {
  const Synchronized hold(lock);
  const STRING list = communication.text(Key::serverList);
  const STRING url = communication.text(Key::agentUrl);
  const int64_t fips = settings.number(Key::fipsEnabled);
  PropertyList refused;
  bool changed = settings.merge(file, refused);
  changed |= communication.merge(file, refused);
  tellRefused(tag, refused, path);
  if (!changed) return false;
  momentsOutstanding |= 1u << reloaded | 1u << anyChange;
  if (url != communication.text(Key::agentUrl)) follow(Key::agentUrl);
  if (list != communication.text(Key::serverList)) follow(Key::serverList);
  if (fips != settings.number(Key::fipsEnabled)) follow(Key::fipsEnabled);
  return true;
}

bool SettingsStore::readFallback(std::string_view tag, IniFault agentIniFault, bool& changed) {
  FileMemory memory;
  IniText text;
  const std::string path = files.fallbackIni();
  const IniFault fault = files.readIniFileInMem(memory, path, text, true);
  {
    const Synchronized hold(lock);
    fallbackIni = memory;
  }
  if (fault == IniFault::missing && agentIniFault == IniFault::missing) return true;
  eventlog::trace(tag, "Agent.ini is corrupt, reading from Fallback.ini");
  const std::string agentIniPath = files.agentIni();
  if (fault == IniFault::none) {
    changed = mergeNVPData(tag, text, path);
    eventlog::event(EventId::settingsFromOtherFile, tag,
                    {path, agentIniPath, describe(agentIniFault)});
    return true;
  }
  if (isDamage(fault)) files.keepAside(tag, path, fault);
  eventlog::event(EventId::settingsNotRead, tag,
                  {agentIniPath, describe(agentIniFault), path, describe(fault)});
  return false;
}

// Of a file that cannot be opened while the agent runs; it is looked at every second.
void SettingsStore::tellUnreadable(std::string_view tag, IniFault fault) {
  const Synchronized hold(lock);
  const bool told = std::exchange(toldUnreadable, fault == IniFault::unreadable);
  if (!toldUnreadable || told) return;
  eventlog::event(EventId::settingsNotRead, tag,
                  {files.agentIni(), describe(fault), files.fallbackIni(), "not consulted"});
}

void SettingsStore::removeUnfinishedOnce() {
  {
    const Synchronized hold(lock);
    if (everRead) return;
  }
  files.removeUnfinished();
}

bool SettingsStore::readFiles(std::string_view tag, bool& changed) {
  const bool hasFallback = files.stampOf(files.fallbackIni()).exists;
  FileMemory memory;
  IniText text;
  const IniFault fault = files.readIniFileInMem(memory, files.agentIni(), text, !hasFallback);
  bool first = false;
  {
    const Synchronized hold(lock);
    first = !everRead;
  }
  const bool good = mergeFiles(tag, text, fault, first, changed);
  // Last, so that a load that an error ended is made again.
  const Synchronized hold(lock);
  everRead = true;
  agentIni = memory;
  return good;
}

bool SettingsStore::mergeFiles(std::string_view tag, const IniText& text, IniFault fault,
                               bool first, bool& changed) {
  tellUnreadable(tag, first ? IniFault::none : fault);
  if (fault == IniFault::none) {
    changed = mergeNVPData(tag, text, files.agentIni());
    eventlog::trace(tag, "Agent Configuration Updated from disk");
    return true;
  }
  // A file that vanished or cannot be opened while the agent runs takes nothing from what is known.
  if (!first && !isDamage(fault)) return fault == IniFault::missing;
  if (isDamage(fault)) files.keepAside(tag, files.agentIni(), fault);
  return readFallback(tag, fault, changed);
}

bool SettingsStore::load(std::string_view tag, bool& changed) {
  changed = false;
  if (!files.usable()) return false;
  if (upToDate()) return true;
  {
    const Synchronized holdFiles(fileLock);
    if (upToDate()) return true;
    const auto lockFile = acquireLockFile(tag);
    if (!lockFile) return false;
    bool write = false;
    removeUnfinishedOnce();
    const bool good = readFiles(tag, changed);
    eventlog::trace(tag, "WalkLogChain returned : %s",
                    walkLogChain(_systemFiles) ? "true" : "false");
    {
      const Synchronized hold(lock);
      lastLoadGood = good;
      write = loaded && dirty();
    }
    // What cannot be written now is written by one of the next loads.
    if (write) ignoreResult(saveHoldingLockFile(tag, false));
    if (!good) return false;
  }
  return true;
}

void SettingsStore::mergeExternalChange(std::string_view tag) {
  FileMemory known;
  bool read = false;
  {
    const Synchronized hold(lock);
    known = agentIni;
    read = everRead;
  }
  const FileStamp stamp = files.stampOf(files.agentIni());
  if (read && (stamp == known.stamp || !stamp.exists)) return;
  bool changed = false;
  if (!read) {
    // What cannot be read is replaced by what this process holds.
    ignoreResult(readFiles(tag, changed));
    return;
  }
  IniText text;
  const bool hasFallback = files.stampOf(files.fallbackIni()).exists;
  const IniFault fault = files.readIniFileInMem(known, files.agentIni(), text, !hasFallback);
  // What this process holds is newer than the fallback, so a damaged file is only replaced.
  if (isDamage(fault)) files.keepAside(tag, files.agentIni(), fault);
  if (fault == IniFault::none) mergeNVPData(tag, text, files.agentIni());
  const Synchronized hold(lock);
  agentIni = known;
}

std::string SettingsStore::exportText() const {
  IniWriter writer(files.lineEnd());
  std::string_view last;
  for (const SettingRow& row : settingsTable()) {
    if (last == row.section) continue;
    last = row.section;
    if (last == kSectionAfterOther) settings.writeSection(writer, kOtherSection);
    settings.writeSection(writer, last);
    communication.writeSection(writer, last);
  }
  return writer.finish();
}

SettingsStore::Snapshot SettingsStore::snapshot() const {
  const Synchronized hold(lock);
  return {settings, communication, exportText()};
}

void SettingsStore::markSaved(const Snapshot& written) {
  settings.markSaved(written.settings);
  communication.markSaved(written.communication);
}

bool SettingsStore::writeOne(std::string_view tag, const std::string& path,
                             FileMemory SettingsStore::*memory, const Snapshot& content,
                             bool force) {
  FileMemory known;
  {
    const Synchronized hold(lock);
    known = this->*memory;
  }
  const bool holdsThis = known.stamp.exists && known.stamp == files.stampOf(path) &&
                         known.digest == sha256Hex(content.text);
  if (holdsThis && !force) return true;
  const bool written = files.write(tag, path, content.text, known);
  const Synchronized hold(lock);
  this->*memory = known;
  return written;
}

bool SettingsStore::saveHoldingLockFile(std::string_view tag, bool force) {
  mergeExternalChange(tag);
  const Snapshot content = snapshot();
  {
    // After a failure the file may hold all of it already, in a folder that was not flushed.
    const Synchronized hold(lock);
    force = force || nextRetryMs != 0;
  }
  const bool written = writeOne(tag, files.agentIni(), &SettingsStore::agentIni, content, force);
  const Synchronized hold(lock);
  if (written) markSaved(content);
  nextRetryMs = written ? 0 : now() + kWriteRetryMs;
  return written;
}

bool SettingsStore::save(std::string_view tag, bool force) {
  const Synchronized holdFiles(fileLock);
  const auto lockFile = acquireLockFile(tag);
  return lockFile && saveHoldingLockFile(tag, force);
}

bool SettingsStore::saveBoth(std::string_view tag) {
  const Synchronized holdFiles(fileLock);
  const auto lockFile = acquireLockFile(tag);
  if (!lockFile) return false;
  mergeExternalChange(tag);
  const bool first =
      writeOne(tag, files.fallbackIni(), &SettingsStore::fallbackIni, snapshot(), false);
  return saveHoldingLockFile(tag, false) && first;
}

bool SettingsStore::saveTo(std::string_view tag, const std::string& path) {
  FileMemory unused;
  return files.write(tag, path, snapshot().text, unused);
}

}  // namespace korvane
