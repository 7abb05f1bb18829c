// Which of the agent's technologies work right now, as text for a local caller.
//
// Lifetime: refers to the settings and the processes that it was given; keeps nothing else.
// Any thread. Errors: as the settings' accessors.
//
//   AgentStateHandler(settings, system.processes).getTechStatus();  // "IPS Online\nIDS Online\n..."
#pragma once

#include <string>

#include "config/settings.h"
#include "platform/fwd.h"

namespace korvane {

class AgentStateHandler {
 public:
  AgentStateHandler(const Settings& settings, platform::Processes& processes);
  AgentStateHandler(const AgentStateHandler&) = delete;
  AgentStateHandler& operator=(const AgentStateHandler&) = delete;
  virtual ~AgentStateHandler();
  // All there are, one blank between.
  virtual std::string getTechNames();
  virtual std::string getAgentVersion();
  // A line for each: "IPS", "IDS", "APP_DISCOVERY" and, for service type 3, "AGENT_FRAMEWORK", each
  // followed by "Online", "Offline" or (IPS alone) "Reboot".
  virtual std::string getTechStatus();

 private:
  const PolicySettings& _policy;
  const UpdateSettings& _discovery;
  const MachineFacts& _machine;
  platform::Processes& _processes;
};

}  // namespace korvane
