// Several settings as one change.
#include "config/agent_config.h"
#include "config/agent_config_state.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

// Ten attempts: whoever asked waits for the answer.
constexpr uint32_t kLockPauseMs = 100;
constexpr char kTag[] = "AgentConfig::changeAll";

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
