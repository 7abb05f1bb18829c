// The generic application data thread. It waits for its stop and does nothing else;
// docs/limitations.md says so. Start, stop and destruction as for every Thread.
#pragma once

#include "agent/thread/thread.h"

namespace korvane {

class GenericAppDataProcessingThread : public Thread {
 public:
  GenericAppDataProcessingThread();

 protected:
  void run() override;
};

}  // namespace korvane
