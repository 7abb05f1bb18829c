// The cloud command channel. It waits for its stop and does nothing else; docs/limitations.md says so.
// Start, stop and destruction as for every Thread.
#pragma once

#include "agent/thread/thread.h"

namespace korvane {

class AgentInfo;

class CommThread : public Thread {
 public:
  explicit CommThread(AgentInfo* info);

 protected:
  void run() override;
};

}  // namespace korvane
