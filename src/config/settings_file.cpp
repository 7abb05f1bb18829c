#include "config/settings_file.h"

#include <utility>

#include "config/refused_settings.h"
#include "config/settings_store.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr char kUpdateTag[] = "AgentConfig::updateIniFile";
constexpr char kServerTag[] = "AgentConfig::newConfiguration";

}  // namespace

bool SettingsFile::readConfigFile() const {
  const Synchronized hold(_store.lock);
  return _store.lastLoadGood;
}

bool SettingsFile::loadIniFile() {
  bool changed = false;
  return loadIniFile(changed);
}

bool SettingsFile::loadIniFile(bool& changed) {
  const ChangeGroup group(*this);
  return _store.load("AgentConfig::loadIniFile", changed);
}

bool SettingsFile::updateIniFile(bool lockHeld, bool force, const STRING& path) {
  if (!path.empty()) return _store.saveTo(kUpdateTag, path.toUtf8());
  const ChangeGroup group(*this);
  if (!lockHeld) return _store.save(kUpdateTag, force);
  const Synchronized holdFiles(_store.fileLock);
  return _store.files.usable() && _store.saveHoldingLockFile(kUpdateTag, force);
}

bool SettingsFile::updateIniFile() {
  return updateIniFile(nullptr, nullptr, STRING());
}

bool SettingsFile::updateIniFile(const char* section, const char* key, const STRING& value) {
  const ChangeGroup group(*this);
  const bool hasKey = section && *section && key && *key;
  if (hasKey && !setValue(key, value)) return false;
  return _store.save(kUpdateTag, false);
}

bool SettingsFile::UpdateAllIni() {
  const ChangeGroup group(*this);
  return _store.saveBoth("AgentConfig::UpdateAllIni");
}

STRING SettingsFile::exportConfigData() const {
  const Synchronized hold(_store.lock);
  return _store.exportText();
}

bool SettingsFile::setValue(const STRING& key, const STRING& value) {
  const ChangeGroup group(*this);
  const Synchronized hold(_store.lock);
  return _store.assignByName(key, value);
}

ChangeAll SettingsFile::changeAll(const PropertyList& changes, STRING& refusedKey) {
  const ChangeGroup group(*this);
  return _store.changeAll(changes, refusedKey);
}

STRING SettingsFile::getValue(const STRING& key) const {
  if (const SettingRow* row = findRow(key)) return _store.text(row->key);
  const Synchronized hold(_store.lock);
  const STRING* text = _store.settings.other(key);
  return text ? *text : STRING();
}

bool SettingsFile::hasValue(const STRING& key) const {
  const Synchronized hold(_store.lock);
  return findRow(key) || _store.settings.other(key);
}

void SettingsFile::registerSubscriber(int id, std::function<void(void*)> callback) {
  const Synchronized hold(_store.lock);
  _store.subscribers.emplace_back(id, std::move(callback));
}

bool SettingsFile::newConfiguration(const PropertyList& properties) {
  RefusedSettings refused;
  return newConfiguration(properties, refused);
}

bool SettingsFile::newConfiguration(const PropertyList& properties, RefusedSettings& refused) {
  const ChangeGroup group(*this);
  refused = {};
  const IncomingSettings judge = incoming();
  std::vector<SettingVerdict> verdicts;
  for (const auto& [key, value] : properties)
    verdicts.push_back(judge.judge(SettingsSource::server, key, value));
  {
    const Synchronized hold(_store.lock);
    _store.applyFromServer(properties, verdicts, refused);
  }
  if (!refused.empty())
    eventlog::event(EventId::configurationPartlyRefused, kServerTag,
                    {refusedSettingsText(refused)});
  const bool written = _store.save(kServerTag, false);
  const Synchronized hold(_store.lock);
  if (written) {
    eventlog::trace(kServerTag, "Agent Configuration from server written to disk");
  } else if (!_store.lastWriteFailed) {
    eventlog::trace(kServerTag, "Agent Configuration from server could not written to disk");
  }
  _store.lastWriteFailed = !written;
  return written;
}

IncomingSettings SettingsFile::incoming() const {
  return _store.incoming();
}

PropertyList SettingsFile::allValues() const {
  PropertyList all;
  const Synchronized hold(_store.lock);
  for (const SettingRow& row : settingsTable())
    all.emplace_back(row.name, _store.mapOf(row.key).text(row.key));
  _store.settings.listOthers(all);
  return all;
}

int SettingsFile::getWhoIsRunning() const {
  return _whoIsRunning;
}

void SettingsFile::setWhoIsRunning(int component) {
  _whoIsRunning = component;
}

}  // namespace korvane
