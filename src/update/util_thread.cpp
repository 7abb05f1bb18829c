#include "update/util_thread.h"

namespace korvane {

UtilThread::UtilThread(AgentInfo*) : Thread(64 * 1024) {}

void UtilThread::run() {
  stopToken().sleepFor(platform::kInfinite);
}

}  // namespace korvane
