// How the store meets its files: loading, writing, and what another process changed in between.
#include "config/agent_config_state.h"
#include "config/log_names.h"
#include "eventlog/event_log.h"
#include "platform/platform.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr int64_t kWriteRetryMs = 10000;

int64_t now() {
  return platform::current().clock.monotonicMs();
}

bool isDamage(IniFault fault) {
  return fault == IniFault::tooLarge || fault == IniFault::notText || fault == IniFault::corrupt;
}

}  // namespace

bool AgentConfigState::dirty() const {
  return settings.dirty() || communication.dirty();
}

bool AgentConfigState::upToDate() {
  const FileStamp stamp = IniFiles::stampOf(files.agentIni());
  const Synchronized hold(lock);
  return everRead && stamp == agentIni.stamp && (!dirty() || now() < nextRetryMs);
}

bool AgentConfigState::mergeNVPData(const IniText& file) {
  const Synchronized hold(lock);
  const STRING list = communication.text(Key::serverList);
  const STRING url = communication.text(Key::agentUrl);
  const int64_t fips = settings.number(Key::fipsEnabled);
  bool changed = settings.merge(file);
  changed |= communication.merge(file);
  if (!changed) return false;
  momentsOutstanding |= 1u << AgentConfig::SETTINGS_RELOADED | 1u << AgentConfig::SETTINGS_CHANGED;
  if (url != communication.text(Key::agentUrl)) follow(Key::agentUrl);
  if (list != communication.text(Key::serverList)) follow(Key::serverList);
  if (fips != settings.number(Key::fipsEnabled)) follow(Key::fipsEnabled);
  return true;
}

bool AgentConfigState::readFallback(std::string_view tag, IniFault agentIniFault, bool& changed) {
  FileMemory memory;
  IniText text;
  const IniFault fault = IniFiles::readIniFileInMem(memory, files.fallbackIni(), text, true);
  {
    const Synchronized hold(lock);
    fallbackIni = memory;
  }
  if (fault == IniFault::missing && agentIniFault == IniFault::missing) return true;
  eventlog::trace(tag, "Agent.ini is corrupt, reading from Fallback.ini");
  if (fault == IniFault::none) {
    changed = mergeNVPData(text);
    return true;
  }
  if (isDamage(fault)) IniFiles::keepAside(tag, files.fallbackIni());
  return false;
}

bool AgentConfigState::readFiles(std::string_view tag, bool& changed) {
  const bool hasFallback = IniFiles::stampOf(files.fallbackIni()).exists;
  FileMemory memory;
  IniText text;
  const IniFault fault = IniFiles::readIniFileInMem(memory, files.agentIni(), text, !hasFallback);
  bool first = false;
  {
    const Synchronized hold(lock);
    first = !everRead;
    everRead = true;
    agentIni = memory;
  }
  if (fault == IniFault::none) {
    changed = mergeNVPData(text);
    eventlog::trace(tag, "Agent Configuration Updated from disk");
    return true;
  }
  // A file that vanished or cannot be opened while the agent runs takes nothing from what is known.
  if (!first && !isDamage(fault)) return fault == IniFault::missing;
  if (isDamage(fault)) IniFiles::keepAside(tag, files.agentIni());
  return readFallback(tag, fault, changed);
}

bool AgentConfigState::load(std::string_view tag, bool& changed) {
  changed = false;
  if (!files.usable()) return false;
  if (upToDate()) return true;
  {
    const Synchronized holdFiles(fileLock);
    if (upToDate()) return true;
    const auto lockFile = files.lock(tag);
    if (!lockFile) return false;
    bool write = false;
    const bool good = readFiles(tag, changed);
    eventlog::trace(tag, "WalkLogChain returned : %s", walkLogChain() ? "true" : "false");
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

void AgentConfigState::takeExternalChange(std::string_view tag) {
  FileMemory known;
  bool read = false;
  {
    const Synchronized hold(lock);
    known = agentIni;
    read = everRead;
  }
  const FileStamp stamp = IniFiles::stampOf(files.agentIni());
  if (read && (stamp == known.stamp || !stamp.exists)) return;
  bool changed = false;
  if (!read) {
    // What cannot be read is replaced by what this process holds.
    ignoreResult(readFiles(tag, changed));
    return;
  }
  IniText text;
  const bool hasFallback = IniFiles::stampOf(files.fallbackIni()).exists;
  const IniFault fault = IniFiles::readIniFileInMem(known, files.agentIni(), text, !hasFallback);
  // What this process holds is newer than the fallback, so a damaged file is only replaced.
  if (isDamage(fault)) IniFiles::keepAside(tag, files.agentIni());
  if (fault == IniFault::none) mergeNVPData(text);
  const Synchronized hold(lock);
  agentIni = known;
}

std::string AgentConfigState::exportText() const {
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

AgentConfigState::Snapshot AgentConfigState::snapshot() const {
  const Synchronized hold(lock);
  return {settings, communication, exportText()};
}

void AgentConfigState::markSaved(const Snapshot& written) {
  settings.markSaved(written.settings);
  communication.markSaved(written.communication);
}

bool AgentConfigState::writeOne(std::string_view tag, const std::string& path,
                                FileMemory AgentConfigState::*memory, const Snapshot& content,
                                bool force) {
  FileMemory known;
  {
    const Synchronized hold(lock);
    known = this->*memory;
  }
  const bool holdsThis = known.stamp.exists && known.stamp == IniFiles::stampOf(path) &&
                         known.digest == sha256Hex(content.text);
  if (holdsThis && !force) return true;
  const bool written = IniFiles::write(tag, path, content.text, known);
  const Synchronized hold(lock);
  this->*memory = known;
  return written;
}

bool AgentConfigState::saveHoldingLockFile(std::string_view tag, bool force) {
  takeExternalChange(tag);
  const Snapshot content = snapshot();
  const bool written = writeOne(tag, files.agentIni(), &AgentConfigState::agentIni, content, force);
  const Synchronized hold(lock);
  if (written) markSaved(content);
  nextRetryMs = written ? 0 : now() + kWriteRetryMs;
  return written;
}

bool AgentConfigState::save(std::string_view tag, bool force) {
  const Synchronized holdFiles(fileLock);
  const auto lockFile = files.lock(tag);
  return lockFile && saveHoldingLockFile(tag, force);
}

bool AgentConfigState::saveBoth(std::string_view tag) {
  const Synchronized holdFiles(fileLock);
  const auto lockFile = files.lock(tag);
  if (!lockFile) return false;
  takeExternalChange(tag);
  const bool first =
      writeOne(tag, files.fallbackIni(), &AgentConfigState::fallbackIni, snapshot(), false);
  return saveHoldingLockFile(tag, false) && first;
}

bool AgentConfigState::saveTo(std::string_view tag, const std::string& path) {
  FileMemory unused;
  return IniFiles::write(tag, path, snapshot().text, unused);
}

}  // namespace korvane
