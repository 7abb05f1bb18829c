#include "config/agent_config.h"

#include <atomic>
#include <memory>
#include <utility>

#include "config/agent_settings.h"
#include "config/install_root.h"
#include "config/settings.h"
#include "platform/platform.h"
#include "util/agent_run.h"

namespace korvane {

// The words of the sections are the ones that stand in the header.
static_assert(AgentConfig::kBuiltInPolicyState == PolicySettings::kBuiltInPolicyState);
static_assert(AgentConfig::RUNNING_AGENT == SettingsFile::RUNNING_AGENT);
static_assert(AgentConfig::RUNNING_CONFIG_TOOL == SettingsFile::RUNNING_CONFIG_TOOL);
static_assert(AgentConfig::SETTINGS_RELOADED == int{SettingsStore::reloaded});
static_assert(AgentConfig::SETTINGS_FROM_SERVER == int{SettingsStore::fromServer});
static_assert(AgentConfig::SETTINGS_CHANGED == int{SettingsStore::anyChange});

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
  SettingsStore::beginChanges();
}

AgentConfig::ChangeGroup::~ChangeGroup() {
  _config._settings->store.endChanges();
}

AgentConfig::AgentConfig() {
  platform::Platform& system = platform::current();
  _settings = std::make_unique<AgentSettings>(AgentSettings::Surroundings{
      {system.files, system.clock, system.sharedLibraries, installDirectory(), this},
      system.registry,
      system.systemInfo});
}
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
  config->_settings->open();
  return config;
}

void AgentConfig::freeInstance() {
  Shared& of = shared();
  std::unique_ptr<AgentConfig> config;
  const Synchronized hold(of.lock);
  config.swap(of.instance);
}

bool AgentConfig::readConfigFile() {
  return getInstance()->_settings->file.readConfigFile();
}

Settings settingsOf(AgentConfig& config) {
  AgentSettings& of = *config._settings;
  return {of.server, of.policy, of.logs, of.updates, of.machine, of.file};
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
