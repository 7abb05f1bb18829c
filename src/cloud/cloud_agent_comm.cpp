#include "cloud/cloud_agent_comm.h"

namespace korvane {

bool CloudAgentComm::testConnection() {
  return false;
}

bool CloudAgentComm::registerAgent(uint8_t&) {
  return true;
}

void CloudAgentComm::reportPolicyState() {}

void CloudAgentComm::stop() {}

}  // namespace korvane
