#include "config/settings_store.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <utility>

#include "config/fips.h"
#include "config/masking.h"
#include "config/url_text.h"
#include "eventlog/event_log.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kFipsTag[] = "AgentConfig::setFipsEnabled";

// How many groups the calling thread is in.
thread_local int groupDepth = 0;

}  // namespace

SettingsStore::SettingsStore(const Surroundings& of)
    : files(of.files, of.clock, of.directory),
      _clock(of.clock),
      _systemFiles(of.files),
      _sharedLibraries(of.sharedLibraries),
      _subject(of.subject) {}

ChangeGroup::ChangeGroup(SettingsStore& store) : _store(store) {
  SettingsStore::beginChanges();
}
ChangeGroup::~ChangeGroup() {
  _store.endChanges();
}

void SettingsStore::beginChanges() {
  ++groupDepth;
}
void SettingsStore::endChanges() noexcept {
  if (--groupDepth == 0) finishChanges();
}

const ValueMap& SettingsStore::mapOf(Key key) const {
  return mapKindOf(rowOf(key)) == MapKind::communication ? communication : settings;
}

STRING SettingsStore::text(Key key) const {
  const Synchronized hold(lock);
  return mapOf(key).text(key);
}

int32_t SettingsStore::number(Key key) const {
  const Synchronized hold(lock);
  return static_cast<int32_t>(
      std::min<int64_t>(mapOf(key).number(key), std::numeric_limits<int32_t>::max()));
}

uint32_t SettingsStore::interval(Key key) const {
  const Synchronized hold(lock);
  return static_cast<uint32_t>(mapOf(key).number(key));
}

void SettingsStore::change(Key key, const STRING& value) {
  const ChangeGroup group(*this);
  const Synchronized hold(lock);
  // A value that is refused leaves the setting as it was.
  ignoreResult(assign(rowOf(key), value));
}

bool SettingsStore::assign(const SettingRow& row, const STRING& value) {
  ValueMap& store = mapKindOf(row) == MapKind::communication ? communication : settings;
  const ValueMap::Result result = store.set(row, value);
  if (result == ValueMap::Result::refused) {
    eventlog::trace("AgentConfig::setValue", "Refused %s=%s", row.name,
                    maskedSetting(row.name, value.toUtf8()));
    return false;
  }
  if (result == ValueMap::Result::changed) {
    writeOutstanding = true;
    follow(row.key);
  }
  return true;
}

bool SettingsStore::assignByName(const STRING& key, const STRING& value) {
  if (const SettingRow* row = findRow(key)) return assign(*row, value);
  const ValueMap::Result result =
      isKeyName(key) ? settings.setOther(key, value) : ValueMap::Result::refused;
  if (result == ValueMap::Result::refused) {
    eventlog::trace("AgentConfig::setValue", "Refused %s=%s", key,
                    maskedSetting(key.toUtf8(), value.toUtf8()));
    return false;
  }
  if (result == ValueMap::Result::changed) {
    writeOutstanding = true;
    momentsOutstanding |= 1u << anyChange;
  }
  return true;
}

STRING SettingsStore::urlHost() const {
  return UrlText::parse(communication.text(Key::agentUrl)).host;
}

void SettingsStore::follow(Key key) {
  momentsOutstanding |= 1u << anyChange;
  if (key == Key::serverList) {
    servers.assign(communication.text(Key::serverList), urlHost());
  } else if (key == Key::agentUrl) {
    servers.setUrlHost(urlHost());
  } else if (key == Key::fipsEnabled) {
    fipsOutstanding = true;
  }
}

void SettingsStore::beginWriting() {
  const Synchronized hold(lock);
  loaded = true;
}

void SettingsStore::applyFips(bool wanted) {
  if (fipsModeOn() == wanted) {
    eventlog::trace(kFipsTag, wanted ? "FIPS mode already ON" : "FIPS mode already OFF");
    return;
  }
  STRING error;
  if (switchFipsMode(wanted, _systemFiles, _sharedLibraries, error)) {
    eventlog::trace(kFipsTag, wanted ? "FIPS mode successfully turned ON"
                                     : "FIPS mode successfully turned OFF");
  } else {
    eventlog::trace(kFipsTag, "Failed to set the FIPS mode = %s", error);
    const char* const states[] = {"off", "on"};
    eventlog::event(EventId::fipsNotSwitched, kFipsTag, {states[wanted], error, states[!wanted]});
  }
}

void SettingsStore::finishChanges() noexcept {
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

void SettingsStore::notifySubscribers() {
  unsigned moments = 0;
  std::vector<std::pair<int, std::function<void(void*)>>> called;
  {
    const Synchronized hold(lock);
    moments = std::exchange(momentsOutstanding, 0);
    if (moments != 0) called = subscribers;
  }
  for (const int moment : {reloaded, fromServer, anyChange}) {
    if ((moments & (1u << moment)) == 0) continue;
    for (const auto& [id, callback] : called) {
      if (id == moment) callback(_subject);
    }
  }
}

}  // namespace korvane
