// The utility thread of the agents that no management server drives. It waits for its stop and does
// nothing else; docs/limitations.md says so. Start, stop and destruction as for every Thread.
#pragma once

#include "agent/thread/thread.h"
#include "platform/export.h"

namespace korvane {

class AgentInfo;

class KORVANE_EXPORT UtilThread : public Thread {
 public:
  explicit UtilThread(AgentInfo* info);

  void run() override;
};

}  // namespace korvane
