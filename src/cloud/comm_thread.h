// The cloud command channel: serves kCloudPipe, over which the cloud connector manages an agent
// that has no management server. docs/cloud.md has its commands; all of them are for
// administrators.
//
// It works on policies in turns with the utility thread (policy_turn.h). It posts nothing to the
// mailbox: the connector cannot end the agent.
//
// Lifetime: its parts outlive it.
// Start: as every Thread; policy outcomes that the last run did not report are reported first.
// Stop: every wait ends at once. A translation in progress is ended by the shutdown token, nothing
// has changed then.
// Threads: commands run on this thread, one at a time. Errors: as RPCServer.
#pragma once

#include "agent/thread/thread.h"
#include "cloud/cloud_methods.h"

namespace korvane {

class AgentInfo;

class CommThread : public Thread {
 public:
  struct Parts {
    platform::Pipes& pipes;
    platform::Clock& clock;
    CloudMethods::Parts methods;
  };
  CommThread(AgentInfo* info, const Parts& parts);

 protected:
  void run() override;

 private:
  const Parts _parts;
};

}  // namespace korvane
