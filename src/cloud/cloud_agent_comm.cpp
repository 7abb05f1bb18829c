#include "cloud/cloud_agent_comm.h"

#include "cloud/connector_presence.h"
#include "update/policy/policy_news.h"

namespace korvane {

bool CloudAgentComm::testConnection() {
  return !_stopped && _connector.askedLately();
}

bool CloudAgentComm::registerAgent(uint8_t&) {
  return true;
}

void CloudAgentComm::reportPolicyState() {
  if (!_stopped) _news.note();
}

void CloudAgentComm::stop() {
  _stopped = true;
}

}  // namespace korvane
