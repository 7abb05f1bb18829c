#include "discovery/app_data_processing_thread.h"

namespace korvane {

AppDataProcessingThread::AppDataProcessingThread() : Thread(64 * 1024) {}

void AppDataProcessingThread::run() {
  stopToken().sleepFor(platform::kInfinite);
}

}  // namespace korvane
