// The place of the thread that sends whole log files. Sending them is not part of the agent yet:
// the thread starts, waits for its stop, and ends. Start, stop and destruction are those of Thread.
#pragma once

#include "agent/thread/thread.h"

namespace korvane {

class BulkLogProcessingThread : public Thread {
 protected:
  void run() override;
};

}  // namespace korvane
