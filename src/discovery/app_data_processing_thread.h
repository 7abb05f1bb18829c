// The application data thread. It waits for its stop and does nothing else; docs/limitations.md
// says so. Start, stop and destruction as for every Thread.
#pragma once

#include "agent/thread/thread.h"

namespace korvane {

class AppDataProcessingThread : public Thread {
 public:
  AppDataProcessingThread();

 protected:
  void run() override;
};

}  // namespace korvane
