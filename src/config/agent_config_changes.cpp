// Several settings as one change.
#include <utility>

#include "config/agent_config.h"
#include "config/agent_config_state.h"
#include "config/setting_check.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

// Ten attempts: whoever asked waits for the answer.
constexpr uint32_t kLockPauseMs = 100;
constexpr char kTag[] = "AgentConfig::changeAll";
constexpr char kServerTag[] = "AgentConfig::newConfiguration";
constexpr size_t kRefusedValueUnits = 100;  // kept of each refused value

}  // namespace

const STRING* AgentConfigState::find(const STRING& key) const {
  const SettingRow* row = findRow(key);
  return row ? &storeOfKey(row->key).text(row->key) : settings.other(key);
}

bool AgentConfigState::assignAll(const PropertyList& changes, PropertyList& former,
                                 STRING& refusedKey) {
  for (const auto& [key, value] : changes) {
    const STRING* present = find(key);
    if (present) former.emplace(former.begin(), key, *present);
    if (present && assignByName(key, value)) continue;
    refusedKey = key;
    return false;
  }
  return true;
}

std::string AgentConfigState::refusalReason(const STRING& key, const STRING& value) const {
  if (!find(key) && !isKeyName(key)) return "names nothing that can be set";
  if (value.length() > SettingStore::kMaxValueUnits) return "is too long";
  if (!find(key) && settings.othersFull()) return "is one unknown key too many";
  return "finds no room among the settings";
}

void AgentConfigState::takeFromServer(const PropertyList& properties,
                                      std::vector<RefusedSetting>& refused) {
  const unsigned before = std::exchange(momentsOutstanding, 0);
  for (const auto& [key, value] : properties) {
    if (comesWithPolicy(key)) continue;
    std::string reason = settingFault(key, value);
    if (reason.empty() && assignByName(key, value)) continue;
    if (reason.empty()) reason = refusalReason(key, value);
    refused.push_back({key, value.substr(0, kRefusedValueUnits), std::move(reason)});
  }
  if (momentsOutstanding != 0) momentsOutstanding |= 1u << AgentConfig::SETTINGS_FROM_SERVER;
  momentsOutstanding |= before;
}

bool AgentConfig::newConfiguration(const PropertyList& properties) {
  std::vector<RefusedSetting> refused;
  return newConfiguration(properties, refused);
}

bool AgentConfig::newConfiguration(const PropertyList& properties,
                                   std::vector<RefusedSetting>& refused) {
  const ChangeGroup group(*this);
  refused.clear();
  {
    const Synchronized hold(_state->lock);
    _state->takeFromServer(properties, refused);
  }
  if (!refused.empty())
    eventlog::event(EventId::configurationPartlyRefused, kServerTag,
                    {refusedSettingsText(refused)});
  const bool written = _state->save(kServerTag, false);
  const Synchronized hold(_state->lock);
  if (written) {
    eventlog::trace(kServerTag, "Agent Configuration from server written to disk");
  } else if (!_state->lastWriteFailed) {
    eventlog::trace(kServerTag, "Agent Configuration from server could not written to disk");
  }
  _state->lastWriteFailed = !written;
  return written;
}

PropertyList AgentConfig::allValues() const {
  PropertyList all;
  const Synchronized hold(_state->lock);
  for (const SettingRow& row : settingsTable())
    all.emplace_back(row.name, _state->storeOfKey(row.key).text(row.key));
  _state->settings.listOthers(all);
  return all;
}

void AgentConfigState::putBack(const PropertyList& former) {
  // These values have stood before.
  for (const auto& [key, value] : former) ignoreResult(assignByName(key, value));
}

AgentConfig::ChangeAll AgentConfigState::changeAll(const PropertyList& changes,
                                                   STRING& refusedKey) {
  using enum AgentConfig::ChangeAll;
  const Synchronized holdFiles(fileLock);
  const auto lockFile = takeLockFile(kTag, kLockPauseMs);
  if (!lockFile) return locked;
  takeExternalChange(kTag);
  PropertyList former;
  {
    const Synchronized hold(lock);
    if (!assignAll(changes, former, refusedKey)) {
      putBack(former);
      return refused;
    }
  }
  if (saveHoldingLockFile(kTag, false)) return done;
  const Synchronized hold(lock);
  putBack(former);
  return notWritten;
}

}  // namespace korvane
