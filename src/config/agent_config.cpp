#include "config/agent_config.h"

#include <atomic>
#include <memory>
#include <utility>

#include "config/agent_config_state.h"
#include "config/install_root.h"
#include "eventlog/event_log.h"
#include "platform/platform.h"
#include "util/agent_run.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

// How many groups the calling thread is in.
thread_local int groupDepth = 0;

}  // namespace

// What the static operations share in one run.
struct AgentConfig::Shared {
  Win32Mutex lock;
  std::unique_ptr<AgentConfig> instance GUARDED_BY(lock);
  std::atomic<bool> shuttingDown{false};
  std::atomic<bool> started{false};
  std::atomic<HidsInterface*> hidsInterface{nullptr};
};

AgentConfig::Shared& AgentConfig::shared() {
  return AgentRun::current().part<Shared>(RunPart::settings);
}

AgentConfig::ChangeGroup::ChangeGroup(AgentConfig& config) : _config(config) {
  ++groupDepth;
}

AgentConfig::ChangeGroup::~ChangeGroup() {
  if (--groupDepth == 0) _config._state->finishChanges();
}

AgentConfig::AgentConfig() : _state(new AgentConfigState(*this, installDirectory())) {}
AgentConfig::~AgentConfig() = default;

AgentConfig* AgentConfig::getInstance() {
  Shared& of = shared();
  AgentConfig* config = nullptr;
  {
    const Synchronized hold(of.lock);
    if (of.instance) return of.instance.get();
    of.instance.reset(new AgentConfig());
    config = of.instance.get();
  }
  // Not under the lock, since another process may hold the lock file for seconds.
  const ChangeGroup group(*config);
  try {
    // Without the file the settings stay as they are; the failure has been told.
    ignoreResult(config->loadIniFile());
  } catch (...) {
    // The object is there for others already; the next load of it reads the files.
    config->_state->beginWriting();
    throw;
  }
  config->_state->beginWriting();
  return config;
}

void AgentConfig::freeInstance() {
  Shared& of = shared();
  std::unique_ptr<AgentConfig> config;
  const Synchronized hold(of.lock);
  config.swap(of.instance);
}

bool AgentConfig::readConfigFile() {
  AgentConfigState& state = *getInstance()->_state;
  const Synchronized hold(state.lock);
  return state.lastLoadGood;
}

bool AgentConfig::loadIniFile() {
  bool changed = false;
  return loadIniFile(changed);
}

bool AgentConfig::loadIniFile(bool& changed) {
  const ChangeGroup group(*this);
  return _state->load("AgentConfig::loadIniFile", changed);
}

bool AgentConfig::updateIniFile(bool lockHeld, bool force, const STRING& path) {
  constexpr char kTag[] = "AgentConfig::updateIniFile";
  if (!path.empty()) return _state->saveTo(kTag, path.toUtf8());
  const ChangeGroup group(*this);
  if (!lockHeld) return _state->save(kTag, force);
  const Synchronized holdFiles(_state->fileLock);
  return _state->files.usable() && _state->saveHoldingLockFile(kTag, force);
}

bool AgentConfig::updateIniFile() {
  return updateIniFile(nullptr, nullptr, STRING());
}

bool AgentConfig::updateIniFile(const char* section, const char* key, const STRING& value) {
  const ChangeGroup group(*this);
  const bool hasKey = section && *section && key && *key;
  if (hasKey && !setValue(key, value)) return false;
  return _state->save("AgentConfig::updateIniFile", false);
}

bool AgentConfig::UpdateAllIni() {
  const ChangeGroup group(*this);
  return _state->saveBoth("AgentConfig::UpdateAllIni");
}

STRING AgentConfig::exportConfigData() const {
  const Synchronized hold(_state->lock);
  return _state->exportText();
}

bool AgentConfig::setValue(const STRING& key, const STRING& value) {
  const ChangeGroup group(*this);
  const Synchronized hold(_state->lock);
  return _state->assignByName(key, value);
}

AgentConfig::ChangeAll AgentConfig::changeAll(const PropertyList& changes, STRING& refusedKey) {
  const ChangeGroup group(*this);
  return _state->changeAll(changes, refusedKey);
}

STRING AgentConfig::getValue(const STRING& key) const {
  if (const SettingRow* row = findRow(key)) return _state->text(row->key);
  const Synchronized hold(_state->lock);
  const STRING* text = _state->settings.other(key);
  return text ? *text : STRING();
}

bool AgentConfig::hasValue(const STRING& key) const {
  const Synchronized hold(_state->lock);
  return findRow(key) || _state->settings.other(key);
}

void AgentConfig::registerSubscriber(int id, std::function<void(void*)> callback) {
  const Synchronized hold(_state->lock);
  _state->subscribers.emplace_back(id, std::move(callback));
}

void AgentConfig::setAgentShuttingdown(bool shuttingDown) {
  shared().shuttingDown = shuttingDown;
}
bool AgentConfig::isAgentShuttingDown() {
  return shared().shuttingDown;
}

void AgentConfig::setAgentStarted(bool started) {
  shared().started = started;
}
bool AgentConfig::isAgentStarted() {
  return shared().started;
}

HidsInterface* AgentConfig::getHIDSInterface() {
  return shared().hidsInterface;
}
void AgentConfig::setHIDSInterface(HidsInterface* component) {
  shared().hidsInterface = component;
}

}  // namespace korvane
