// Several settings as one change.
#include <algorithm>
#include <iterator>
#include <utility>

#include "config/masking.h"
#include "config/setting_check.h"
#include "config/settings_store.h"
#include "platform/files.h"
#include "platform/paths.h"
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

IncomingSettings SettingsStore::incoming() const {
  const Synchronized hold(lock);
  const STRING* plainHttp = find("agent.http.plain.enabled");
  return IncomingSettings({_systemFiles, platform::directoryOf(files.directory()),
                           files.directory(), settings.text(Key::settingsLocalOnly),
                           plainHttp && plainHttp->toBool()});
}

void SettingsStore::applyFromServer(const PropertyList& properties,
                                    std::span<const SettingVerdict> verdicts,
                                    RefusedSettings& refused) {
  const unsigned before = std::exchange(momentsOutstanding, 0);
  std::vector<RefusedSetting> others;  // named behind those that are forbidden
  for (size_t i = 0; i < properties.size(); ++i) {
    const auto& [key, value] = properties[i];
    if (comesWithPolicy(key)) continue;
    std::string reason = verdicts[i].refusal;
    if (reason.empty() && assignByName(key, value)) continue;
    ++refused.count;
    std::vector<RefusedSetting>& list = verdicts[i].forbidden ? refused.named : others;
    if (list.size() >= RefusedSettings::kMostNamed) continue;
    if (reason.empty()) reason = refusalReason(key, value);
    const STRING kept = value.substr(0, ValueMap::kMaxValueUnits);
    const STRING shown(maskedSetting(key.toUtf8(), kept.toUtf8()));
    list.push_back({key, shown.substr(0, kRefusedValueUnits), std::move(reason)});
  }
  others.resize(std::min(others.size(), RefusedSettings::kMostNamed - refused.named.size()));
  refused.named.insert(refused.named.end(), std::make_move_iterator(others.begin()),
                       std::make_move_iterator(others.end()));
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
