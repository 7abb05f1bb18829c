// All settings of one agent: the store and its sections.
//
// Lifetime: the parts handed in and what `subject` is outlive it. open() reads the files the first
// time; setters write from then on. Threads: as AgentConfig has them.
#pragma once

#include "config/log_settings.h"
#include "config/machine_facts.h"
#include "config/policy_settings.h"
#include "config/server_settings.h"
#include "config/settings_file.h"
#include "config/settings_store.h"
#include "config/update_settings.h"

namespace korvane {

struct AgentSettings {
  struct Surroundings {
    SettingsStore::Surroundings store;
    platform::Registry& registry;
    platform::SystemInfo& systemInfo;
  };

  explicit AgentSettings(const Surroundings& of);
  void open();

  SettingsStore store;
  ServerSettings server;
  PolicySettings policy;
  LogSettings logs;
  UpdateSettings updates;
  MachineFacts machine;
  SettingsFile file;
};

}  // namespace korvane
