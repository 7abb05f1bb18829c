#include "update/component_update_thread.h"

namespace korvane {

ComponentUpdateThread::ComponentUpdateThread() : Thread(64 * 1024) {}

void ComponentUpdateThread::run() {
  stopToken().sleepFor(platform::kInfinite);
}

}  // namespace korvane
