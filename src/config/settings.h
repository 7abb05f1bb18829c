// The settings by section, for classes that take the section they use and not the whole store.
#pragma once

#include "config/agent_config.h"
#include "config/log_settings.h"
#include "config/machine_facts.h"
#include "config/policy_settings.h"
#include "config/server_settings.h"
#include "config/settings_file.h"
#include "config/update_settings.h"

namespace korvane {

// The sections of one store. Lives no longer than the store.
struct Settings {
  ServerSettings& server;
  PolicySettings& policy;
  LogSettings& logs;
  UpdateSettings& updates;
  MachineFacts& machine;
  SettingsFile& file;
};

Settings settingsOf(AgentConfig& config);

}  // namespace korvane
