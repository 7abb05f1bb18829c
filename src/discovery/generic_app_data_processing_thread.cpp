#include "discovery/generic_app_data_processing_thread.h"

namespace korvane {

GenericAppDataProcessingThread::GenericAppDataProcessingThread(const AppDataParts& parts,
                                                               bool serves)
    : _parts(parts), _serves(serves) {}

void GenericAppDataProcessingThread::run() {
  if (_serves) return AppDataWorker(_parts, stopToken()).run(/*keepsSchedule=*/true);
  wakeWithSettings(_parts.settings, _parts.requests);
  keepSchedule();
}

void GenericAppDataProcessingThread::keepSchedule() {
  InventorySchedule schedule(_parts.settings, _parts.requests, _parts.clock);
  do schedule.askWhenDue();
  while (!_parts.requests.schedule().wait(stopToken(), schedule.remainingMs()));
}

}  // namespace korvane
