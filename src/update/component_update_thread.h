// The component update thread, which every service type starts. It waits for its stop and does nothing
// else; docs/limitations.md says so. Start, stop and destruction as for every Thread.
#pragma once

#include "agent/thread/thread.h"

namespace korvane {

class ComponentUpdateThread : public Thread {
 public:
  ComponentUpdateThread();

 protected:
  void run() override;
};

}  // namespace korvane
