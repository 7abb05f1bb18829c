// What the agent knows about its logs, its version and this machine, and what it reports of it.
#include "config/agent_config.h"
#include "config/agent_config_state.h"
#include "config/install_root.h"
#include "config/log_names.h"
#include "config/properties_file.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "platform/system_info.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr int64_t kAddressKeptMs = 5 * 60 * 1000;

STRING readVersion() {
  const std::string file =
      platform::joinPath(platform::current().files, {installDirectory(), "kav-version.properties"});
  PropertyList properties;
  if (readPropertiesFile(platform::current().files, file, properties) != 0) {
    eventlog::trace("AgentConfig::getKorvaneVersion", "Cannot open version file : %s", file);
    return {};
  }
  const STRING version = propertyValue(properties, "version");
  const STRING build = propertyValue(properties, "build.number");
  return build.empty() ? version : version + "." + build;
}

STRING versionText(const platform::SystemVersion& version) {
  return STRING::fromInt(version.major) + "." + STRING::fromInt(version.minor) + "." +
         STRING::fromInt(version.build);
}

}  // namespace

STRING AgentConfig::getLogPointerFileName(LogType type) {
  return logPointerPath(type);
}
STRING AgentConfig::getLogTypeByName(LogType type) {
  return logTypeName(type);
}

STRING AgentConfig::getCurrentLogFile(LogType type) const {
  switch (type) {
    case AGENT_LOG:
      return getAgentLogFile();
    case HIDS_LOG:
      return getHIDSLogFile();
    case HIDS_RT_LOG:
      return getHIDSRTLogFile();
  }
  return {};
}

bool AgentConfig::agentLogFileChanged() const {
  const STRING now(eventlog::currentFile());
  return !now.empty() && now != getAgentLogFile();
}

void AgentConfig::rolledAgentLogFile() {
  const STRING now(eventlog::currentFile());
  const ChangeGroup group(*this);
  const Synchronized hold(_state->lock);
  // The first file of all follows no other one.
  if (!_state->settings.text(Key::agentLogFile).empty()) {
    // No value of this kind is refused.
    ignoreResult(_state->assign(rowOf(Key::agentLogRolloverPending), "true"));
  }
  ignoreResult(_state->assign(rowOf(Key::agentLogFile), now));
}

STRING AgentConfig::getKorvaneVersion() const {
  const Synchronized hold(_state->lock);
  if (_state->version.empty()) _state->version = readVersion();
  return _state->version;
}

STRING AgentConfig::getHostname() const {
  const Synchronized hold(_state->lock);
  if (_state->hostName.empty()) _state->hostName = platform::current().systemInfo.hostName();
  return _state->hostName;
}

STRING AgentConfig::getOS() const {
  const Synchronized hold(_state->lock);
  if (_state->osDescription.empty()) {
    _state->osDescription = platform::current().systemInfo.osDescription();
  }
  return _state->osDescription;
}

STRING AgentConfig::getIPAddress() const {
  platform::Platform& system = platform::current();
  const int64_t now = system.clock.monotonicMs();
  const Synchronized hold(_state->lock);
  if (_state->ipAddress.empty() || now >= _state->ipAddressUntilMs) {
    const std::vector<std::string> addresses = system.systemInfo.ipAddresses();
    _state->ipAddress = addresses.empty() ? STRING() : STRING(addresses.front());
    _state->ipAddressUntilMs = now + kAddressKeptMs;
  }
  return _state->ipAddress;
}

PropertyList AgentConfig::getAttributes() const {
  platform::SystemInfo& system = platform::current().systemInfo;
  PropertyList attributes;
  for (const SettingRow& row : settingsTable()) {
    if (row.report == Report::attribute) attributes.emplace_back(row.name, _state->text(row.key));
  }
  attributes.emplace_back("agent.version", getKorvaneVersion());
  attributes.emplace_back("agent.hostname", getHostname());
  attributes.emplace_back("agent.ipaddress", getIPAddress());
  attributes.emplace_back("agent.os", getOS());
  attributes.emplace_back("agent.osversion", versionText(system.version()));
  attributes.emplace_back("agent.timezone", STRING(system.timeZone()));
  attributes.emplace_back("agent.domain.name", STRING(system.domainName()));
  return attributes;
}

PropertyList AgentConfig::getConfiguration() const {
  PropertyList configuration;
  for (const SettingRow& row : settingsTable()) {
    if (row.report != Report::configuration) continue;
    configuration.emplace_back(row.name, _state->text(row.key));
  }
  return configuration;
}

}  // namespace korvane
