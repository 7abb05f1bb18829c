#include "discovery/generic_app_data_processing_thread.h"

namespace korvane {

GenericAppDataProcessingThread::GenericAppDataProcessingThread() : Thread(64 * 1024) {}

void GenericAppDataProcessingThread::run() {
  stopToken().sleepFor(platform::kInfinite);
}

}  // namespace korvane
