#include "cloud/cloud_agent_comm.h"

#include "cloud/connector_presence.h"
#include "update/policy/policy_parts.h"

namespace korvane {

bool CloudAgentComm::testConnection() {
  return !_stopped && ConnectorPresence::askedLately();
}

bool CloudAgentComm::registerAgent(uint8_t&) {
  return true;
}

void CloudAgentComm::reportPolicyState() {
  if (!_stopped) policyPartsOfRun().shared.news.note();
}

void CloudAgentComm::stop() {
  _stopped = true;
}

}  // namespace korvane
