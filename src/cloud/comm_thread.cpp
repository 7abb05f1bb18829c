#include "cloud/comm_thread.h"

namespace korvane {

CommThread::CommThread(AgentInfo*) : Thread(64 * 1024) {}

void CommThread::run() {
  stopToken().sleepFor(platform::kInfinite);
}

}  // namespace korvane
