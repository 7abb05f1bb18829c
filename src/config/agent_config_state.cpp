#include "config/agent_config_state.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <utility>

#include "config/fips.h"
#include "config/url_text.h"
#include "eventlog/event_log.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kFipsTag[] = "AgentConfig::setFipsEnabled";

void applyFips(bool wanted) {
  if (fipsModeOn() == wanted) {
    eventlog::trace(kFipsTag, wanted ? "FIPS mode already ON" : "FIPS mode already OFF");
    return;
  }
  STRING error;
  if (switchFipsMode(wanted, error)) {
    eventlog::trace(kFipsTag, wanted ? "FIPS mode successfully turned ON"
                                     : "FIPS mode successfully turned OFF");
  } else {
    eventlog::trace(kFipsTag, "Failed to set the FIPS mode = %s", error);
    const char* const states[] = {"off", "on"};
    eventlog::event(EventId::fipsNotSwitched, kFipsTag, {states[wanted], error, states[!wanted]});
  }
}

}  // namespace

AgentConfigState::AgentConfigState(AgentConfig& ownerConfig, std::string directory)
    : owner(ownerConfig), files(std::move(directory)) {}

const SettingStore& AgentConfigState::storeOfKey(Key key) const {
  return storeOf(rowOf(key)) == StoreKind::communication ? communication : settings;
}

STRING AgentConfigState::text(Key key) const {
  const Synchronized hold(lock);
  return storeOfKey(key).text(key);
}

int32_t AgentConfigState::number(Key key) const {
  const Synchronized hold(lock);
  return static_cast<int32_t>(
      std::min<int64_t>(storeOfKey(key).number(key), std::numeric_limits<int32_t>::max()));
}

uint32_t AgentConfigState::interval(Key key) const {
  const Synchronized hold(lock);
  return static_cast<uint32_t>(storeOfKey(key).number(key));
}

void AgentConfigState::change(Key key, const STRING& value) {
  const AgentConfig::ChangeGroup group(owner);
  const Synchronized hold(lock);
  // A value that is refused leaves the setting as it was.
  ignoreResult(assign(rowOf(key), value));
}

bool AgentConfigState::assign(const SettingRow& row, const STRING& value) {
  SettingStore& store = storeOf(row) == StoreKind::communication ? communication : settings;
  const SettingStore::Result result = store.set(row, value);
  if (result == SettingStore::Result::refused) {
    eventlog::trace("AgentConfig::setValue", "Refused %s=%s", row.name, value);
    return false;
  }
  if (result == SettingStore::Result::changed) {
    writeOutstanding = true;
    follow(row.key);
  }
  return true;
}

bool AgentConfigState::assignByName(const STRING& key, const STRING& value) {
  if (const SettingRow* row = findRow(key)) return assign(*row, value);
  const SettingStore::Result result =
      isKeyName(key) ? settings.setOther(key, value) : SettingStore::Result::refused;
  if (result == SettingStore::Result::refused) {
    eventlog::trace("AgentConfig::setValue", "Refused %s=%s", key, value);
    return false;
  }
  if (result == SettingStore::Result::changed) {
    writeOutstanding = true;
    momentsOutstanding |= 1u << AgentConfig::SETTINGS_CHANGED;
  }
  return true;
}

STRING AgentConfigState::urlHost() const {
  return UrlText::parse(communication.text(Key::agentUrl)).host;
}

void AgentConfigState::follow(Key key) {
  momentsOutstanding |= 1u << AgentConfig::SETTINGS_CHANGED;
  if (key == Key::serverList) {
    servers.assign(communication.text(Key::serverList), urlHost());
  } else if (key == Key::agentUrl) {
    servers.setUrlHost(urlHost());
  } else if (key == Key::fipsEnabled) {
    fipsOutstanding = true;
  }
}

void AgentConfigState::beginWriting() {
  const Synchronized hold(lock);
  loaded = true;
  acknowledgedBuiltIn = settings.number(Key::useBuiltInPolicy) != 0;
  reportedError = static_cast<int>(settings.number(Key::policyErrorCode));
  reportedErrorText = settings.text(Key::policyErrorString);
}

void AgentConfigState::finishChanges() noexcept {
  try {
    bool fips = false;
    bool fipsWanted = false;
    bool write = false;
    {
      const Synchronized hold(lock);
      fips = std::exchange(fipsOutstanding, false);
      fipsWanted = settings.number(Key::fipsEnabled) != 0;
      write = loaded && std::exchange(writeOutstanding, false) && dirty();
    }
    if (fips) applyFips(fipsWanted);
    // What cannot be written now is written by one of the next loads.
    if (write) ignoreResult(save("AgentConfig::updateIniFile", false));
    notifySubscribers();
  } catch (const std::exception& error) {
    eventlog::trace("AgentConfig::updateIniFile", "A change could not be finished: %s",
                    error.what());
  }
}

void AgentConfigState::notifySubscribers() {
  unsigned moments = 0;
  std::vector<std::pair<int, std::function<void(void*)>>> called;
  {
    const Synchronized hold(lock);
    moments = std::exchange(momentsOutstanding, 0);
    if (moments != 0) called = subscribers;
  }
  for (const int moment : {AgentConfig::SETTINGS_RELOADED, AgentConfig::SETTINGS_FROM_SERVER,
                           AgentConfig::SETTINGS_CHANGED}) {
    if ((moments & (1u << moment)) == 0) continue;
    for (const auto& [id, callback] : called) {
      if (id == moment) callback(&owner);
    }
  }
}

}  // namespace korvane
