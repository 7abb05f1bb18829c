// The agent's own log for one start of the agent: opened with the settings of the store, in the folder
// "logs" of the installation directory, and reconfigured whenever a setting changes.
//
// Lifetime: the log closes with this object; the settings store must go first. Threads: made and destroyed
// by one, while no other thread of the agent runs.
#pragma once

namespace korvane {

class AgentConfig;

class OwnLog {
 public:
  explicit OwnLog(AgentConfig& config);
  ~OwnLog();
  OwnLog(const OwnLog&) = delete;
  OwnLog& operator=(const OwnLog&) = delete;
};

}  // namespace korvane
