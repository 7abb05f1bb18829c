// Several settings as one change.
#include <utility>

#include "config/setting_check.h"
#include "config/settings_store.h"
#include "platform/files.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

// Ten attempts: whoever asked waits for the answer.
constexpr uint32_t kLockPauseMs = 100;
constexpr char kTag[] = "AgentConfig::changeAll";
constexpr size_t kRefusedValueUnits = 100;  // kept of each refused value

}  // namespace

const STRING* SettingsStore::find(const STRING& key) const {
  const SettingRow* row = findRow(key);
  return row ? &mapOf(row->key).text(row->key) : settings.other(key);
}

bool SettingsStore::assignAll(const PropertyList& changes, PropertyList& former,
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

std::string SettingsStore::refusalReason(const STRING& key, const STRING& value) const {
  if (!find(key) && !isKeyName(key)) return "names nothing that can be set";
  if (value.length() > ValueMap::kMaxValueUnits) return "is too long";
  if (!find(key) && settings.othersFull()) return "is one unknown key too many";
  return "finds no room among the settings";
}

void SettingsStore::applyFromServer(const PropertyList& properties,
                                    std::vector<RefusedSetting>& refused) {
  const unsigned before = std::exchange(momentsOutstanding, 0);
  for (const auto& [key, value] : properties) {
    if (comesWithPolicy(key)) continue;
    std::string reason = trustFault(key);
    if (reason.empty()) reason = settingFault(key, value);
    if (reason.empty() && assignByName(key, value)) continue;
    if (reason.empty()) reason = refusalReason(key, value);
    refused.push_back({key, value.substr(0, kRefusedValueUnits), std::move(reason)});
  }
  if (momentsOutstanding != 0) momentsOutstanding |= 1u << fromServer;
  momentsOutstanding |= before;
}

void SettingsStore::putBack(const PropertyList& former) {
  // These values have stood before.
  for (const auto& [key, value] : former) ignoreResult(assignByName(key, value));
}

ChangeAll SettingsStore::changeAll(const PropertyList& changes, STRING& refusedKey) {
  using enum ChangeAll;
  const Synchronized holdFiles(fileLock);
  const auto lockFile = acquireLockFile(kTag, kLockPauseMs);
  if (!lockFile) return locked;
  mergeExternalChange(kTag);
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
