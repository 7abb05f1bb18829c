// The communication component of an agent that the cloud manages.
//
// Such an agent is not enrolled from here and sends nothing by itself: the cloud connector
// comes to it over the command channel (comm_thread.h) and asks. Operations return at once;
// any thread may call them. Presence and news outlive the object.
#pragma once

#include <atomic>

#include "comm/agent_comm.h"

namespace korvane {

class ConnectorPresence;
class PolicyNews;

class CloudAgentComm : public AgentComm {
 public:
  CloudAgentComm(const ConnectorPresence& connector, PolicyNews& news)
      : _connector(connector), _news(news) {}

  // Whether the connector has asked for something lately (connector_presence.h); false
  // after stop().
  bool testConnection() override;
  // True: the connector enrols the agent.
  bool registerAgent(uint8_t& builtinReported) override;
  // Notes that there is something for the connector to ask for: "news" of getState goes up.
  void reportPolicyState() override;
  void stop() override;

 private:
  const ConnectorPresence& _connector;
  PolicyNews& _news;
  std::atomic<bool> _stopped{false};
};

}  // namespace korvane
