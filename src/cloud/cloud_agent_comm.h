// The communication component of an agent that the cloud manages. Such an agent is not enrolled from here:
// its command channel carries that, and is not there yet (docs/limitations.md). All operations return at
// once; any thread may call them.
#pragma once

#include "comm/agent_comm.h"

namespace korvane {

class CloudAgentComm : public AgentComm {
 public:
  bool testConnection() override;  // false: there is no channel to test
  bool registerAgent(
      uint8_t& builtinReported) override;  // true: nothing is to be enrolled from here
  void reportPolicyState() override;
  void stop() override;
};

}  // namespace korvane
