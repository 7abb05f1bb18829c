#include "config/machine_facts.h"

#include <string>
#include <vector>

#include "config/install_root.h"
#include "config/properties_file.h"
#include "config/settings_store.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/system_info.h"

namespace korvane {
namespace {

constexpr int64_t kAddressKeptMs = 5 * 60 * 1000;

STRING readVersion(platform::Files& files) {
  const std::string file = installedFile("kav-version.properties");
  PropertyList properties;
  if (readPropertiesFile(files, file, properties) != 0) {
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

STRING MachineFacts::getKorvaneVersion() const {
  const Synchronized hold(_lock);
  if (_version.empty()) _version = readVersion(_files);
  return _version;
}

STRING MachineFacts::getHostname() const {
  const Synchronized hold(_lock);
  if (_hostName.empty()) _hostName = _systemInfo.hostName();
  return _hostName;
}

STRING MachineFacts::getOS() const {
  const Synchronized hold(_lock);
  if (_osDescription.empty()) _osDescription = _systemInfo.osDescription();
  return _osDescription;
}

STRING MachineFacts::getIPAddress() const {
  const int64_t now = _clock.monotonicMs();
  const Synchronized hold(_lock);
  if (_ipAddress.empty() || now >= _ipAddressUntilMs) {
    const std::vector<std::string> addresses = _systemInfo.ipAddresses();
    _ipAddress = addresses.empty() ? STRING() : STRING(addresses.front());
    _ipAddressUntilMs = now + kAddressKeptMs;
  }
  return _ipAddress;
}

PropertyList MachineFacts::getAttributes() const {
  PropertyList attributes;
  for (const SettingRow& row : settingsTable()) {
    if (row.report == Report::attribute) attributes.emplace_back(row.name, _store.text(row.key));
  }
  attributes.emplace_back("agent.version", getKorvaneVersion());
  attributes.emplace_back("agent.hostname", getHostname());
  attributes.emplace_back("agent.ipaddress", getIPAddress());
  attributes.emplace_back("agent.os", getOS());
  attributes.emplace_back("agent.osversion", versionText(_systemInfo.version()));
  attributes.emplace_back("agent.timezone", STRING(_systemInfo.timeZone()));
  attributes.emplace_back("agent.domain.name", STRING(_systemInfo.domainName()));
  return attributes;
}

PropertyList MachineFacts::getConfiguration() const {
  PropertyList configuration;
  for (const SettingRow& row : settingsTable()) {
    if (row.report != Report::configuration) continue;
    configuration.emplace_back(row.name, _store.text(row.key));
  }
  return configuration;
}

}  // namespace korvane
