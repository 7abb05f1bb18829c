// The settings by section, for classes that take the section they use and not the whole store.
#pragma once

#include "config/agent_config.h"

namespace korvane {

using ServerSettings = AgentConfig;  // identity, URL and servers, TLS, times of the connection
using PolicySettings = AgentConfig;  // [Driver], reboots, policy state and error, retranslation
using LogSettings = AgentConfig;     // the logs: files, limits, consolidation
using UpdateSettings = AgentConfig;  // polling, notifications, software, content, application data
using MachineFacts = AgentConfig;    // version, host name, address, system; what registration says
using SettingsFile = AgentConfig;    // load and save, values by name, changes from a server

// The sections of one store. Lives no longer than the store.
struct Settings {
  ServerSettings& server;
  PolicySettings& policy;
  LogSettings& logs;
  UpdateSettings& updates;
  MachineFacts& machine;
  SettingsFile& file;
};

inline Settings settingsOf(AgentConfig& config) {
  return {config, config, config, config, config, config};
}

}  // namespace korvane
