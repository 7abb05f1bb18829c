// Which of the agent's technologies work right now, as text for a local caller.
//
// Lifetime: refers to AgentConfig's instance as it was at construction; keeps nothing else.
// Any thread.
// Errors: as AgentConfig's accessors.
//
//   AgentStateHandler(current().processes).getTechStatus();  // "IPS Online\nIDS Online\n..."
#pragma once

#include <string>

#include "config/agent_config.h"
#include "platform/fwd.h"

namespace korvane {

class AgentStateHandler {
 public:
  explicit AgentStateHandler(platform::Processes& processes);
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
  AgentConfig* const _config;
  platform::Processes& _processes;
};

}  // namespace korvane
