// The agent's own log for one start of the agent: opened with the settings of the store, in the
// folder "logs" of the installation directory, and reconfigured whenever a setting changes.
//
// The settings themselves are loaded before it can be opened; messages from loading them are
// buffered from construction and written by open(), before anything else and with their original
// times. If the log was never opened it is finally opened with default settings to write them, so
// that a failed start is reported too.
//
// Lifetime: the log closes with this object; the settings store must go first. Threads: made and
// destroyed by one, while no other thread of the agent runs.
#pragma once

#include "eventlog/event_log_file.h"
#include "platform/fwd.h"

namespace korvane {

class LogSettings;
class SettingsFile;

class OwnLog {
 public:
  explicit OwnLog(platform::Platform& system);
  ~OwnLog();
  // Once. It follows the changes of the settings from now on.
  void open(const LogSettings& settings, SettingsFile& changes);
  OwnLog(const OwnLog&) = delete;
  OwnLog& operator=(const OwnLog&) = delete;

 private:
  void openWith(const eventlog::Settings& settings);

  platform::Platform& _system;
  bool _opened = false;
};

}  // namespace korvane
