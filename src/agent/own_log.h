// The agent's own log for one start of the agent: opened with the settings of the store, in the folder
// "logs" of the installation directory, and reconfigured whenever a setting changes.
//
// The settings themselves are loaded before it can be opened; what their load has to tell is held from the
// construction on and written by open(), before anything else and with its own times. A log that was never
// opened is opened with the default settings for that in the end, so that a start that fails is told too.
//
// Lifetime: the log closes with this object; the settings store must go first. Threads: made and destroyed
// by one, while no other thread of the agent runs.
#pragma once

namespace korvane {

class AgentConfig;

class OwnLog {
 public:
  OwnLog();
  ~OwnLog();
  // Once.
  void open(AgentConfig& config);
  OwnLog(const OwnLog&) = delete;
  OwnLog& operator=(const OwnLog&) = delete;

 private:
  bool _opened = false;
};

}  // namespace korvane
