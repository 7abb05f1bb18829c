// The settings as they stand in the files, read without changing anything: no lock file is
// taken and a damaged file is not copied aside. The agent's own files are replaced
// atomically, so what is read is whole.
// Lifetime: a value. Threads: one.
#pragma once

#include <string>
#include <string_view>

#include "config/ini_files.h"
#include "config/value_map.h"
#include "util/property_list.h"

namespace korvane::agentctl {

inline constexpr char kShowHelp[] = "Shows values that may be secrets, which are masked otherwise";

class SettingsView {
 public:
  // Of an installation: agent.ini, or fallback.ini where the agent would take that one, or the
  // defaults. A Failure when agent.ini may not be read.
  static SettingsView ofInstallation(const IniFiles& files);
  // Of one file, its checksum left out of account; a Failure when it cannot be read.
  static SettingsView ofFile(const IniFiles& files, const std::string& path);
  static SettingsView defaults() { return SettingsView("the built-in defaults"); }

  STRING text(Key key) const;
  // Null for a key that is not in the table and not in [Other].
  const STRING* find(const STRING& key) const;
  // Puts a value under a key of this view alone; false when the store would refuse it.
  bool set(const STRING& key, const STRING& value);
  // Every key with its section, in the order of the file.
  struct Entry {
    std::string section;
    std::string key;
    STRING value;
  };
  std::vector<Entry> entries() const;

  // A value as it is printed: secrets masked (config/masking.h) unless the operator asks for them.
  static std::string shown(const std::string& key, const STRING& value, bool inFull);

  // The file that the values come from, or what stands for it.
  const std::string& source() const { return _source; }
  // What is wrong with agent.ini or fallback.ini; empty when nothing is.
  const std::string& fault() const { return _fault; }

 private:
  explicit SettingsView(std::string source) : _source(std::move(source)) {}
  void take(const IniText& file);

  ValueMap _settings{MapKind::settings};
  ValueMap _communication{MapKind::communication};
  PropertyList _others;
  std::string _source;
  std::string _fault;
};

}  // namespace korvane::agentctl
