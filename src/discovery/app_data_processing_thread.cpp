#include "discovery/app_data_processing_thread.h"

namespace korvane {

AppDataProcessingThread::AppDataProcessingThread(const AppDataParts& parts) : _parts(parts) {}

void AppDataProcessingThread::run() {
  AppDataWorker(_parts, stopToken()).run(/*keepsSchedule=*/false);
}

}  // namespace korvane
