#include "logs/bulk_log_processing_thread.h"

namespace korvane {

void BulkLogProcessingThread::run() {
  while (!stopRequested()) stopToken().sleepFor(platform::kInfinite);
}

}  // namespace korvane
