// The settings as a whole: reading and writing agent.ini, values by their names, configurations from
// a server, who is told of a change. Threads, writing and errors: as AgentConfig has them.
#pragma once

#include <atomic>
#include <functional>
#include <vector>

#include "config/change_all.h"
#include "config/change_group.h"
#include "config/incoming_settings.h"
#include "util/property_list.h"
#include "util/string.h"

namespace korvane {

class SettingsStore;
struct RefusedSettings;

class SettingsFile {
 public:
  explicit SettingsFile(SettingsStore& store) : _store(store) {}

  // Makes the changes of one thread in its scope one write, done when the outermost group ends.
  struct ChangeGroup : korvane::ChangeGroup {
    explicit ChangeGroup(SettingsFile& file) : korvane::ChangeGroup(file._store) {}
  };

  // True when the first load found agent.ini or its fallback readable, or neither of them.
  [[nodiscard]] bool readConfigFile() const;
  // Reads agent.ini again when its date or size differs from the last time. False when the lock
  // file or the file is not available; the settings stay as they were then. `changed`: a value
  // differs now.
  [[nodiscard]] bool loadIniFile();
  [[nodiscard]] bool loadIniFile(bool& changed);
  // Writes all settings to `path`, or to agent.ini when it is empty. lockHeld: the caller has the
  // lock file already. force: write also when the file already holds exactly this.
  [[nodiscard]] bool updateIniFile(bool lockHeld, bool force, const STRING& path);
  // Sets one key and writes agent.ini; without section and key (null or empty) only writes it.
  [[nodiscard]] bool updateIniFile(const char* section, const char* key, const STRING& value);
  [[nodiscard]] bool updateIniFile();
  // Writes fallback.ini, then agent.ini.
  [[nodiscard]] bool UpdateAllIni();
  // Settings from the server: sets every pair, then writes agent.ini once; false when that
  // fails. What the server may not set, or cannot be a value of its key, is left out, named in
  // `refused` and in event 10526; the rest is in force.
  [[nodiscard]] bool newConfiguration(const PropertyList& properties);
  [[nodiscard]] bool newConfiguration(const PropertyList& properties, RefusedSettings& refused);
  // What judges settings that come from elsewhere, as the settings are now.
  IncomingSettings incoming() const;
  // The whole configuration as the text of an ini file, checksum included.
  STRING exportConfigData() const;
  // Any key by its name; one that is not in the table belongs to [Other]. False for a name that
  // cannot stand in the file and for a value that is not of the key's type.
  [[nodiscard]] bool setValue(const STRING& key, const STRING& value);
  // Several known keys as one change, in force and written when it returns: all of them, or none.
  using ChangeAll = korvane::ChangeAll;
  ChangeAll changeAll(const PropertyList& changes, STRING& refusedKey);
  STRING getValue(const STRING& key) const;  // empty when unknown
  bool hasValue(const STRING& key) const;
  PropertyList allValues() const;  // in the order of the table, then those of [Other]

  // Calls back at one of the moments AgentConfig::SubscriberId names; there is how.
  void registerSubscriber(int id, std::function<void(void*)> callback);

  // Which program uses the store (memory only); the one numbered 4 must not have its settings
  // written back by others.
  static constexpr int RUNNING_AGENT = 1;
  static constexpr int RUNNING_CONFIG_TOOL = 4;
  int getWhoIsRunning() const;
  void setWhoIsRunning(int component);

 private:
  SettingsStore& _store;
  std::atomic<int> _whoIsRunning{RUNNING_AGENT};
};

}  // namespace korvane
