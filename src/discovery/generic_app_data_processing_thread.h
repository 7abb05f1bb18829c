// The generic application data thread, of every agent: keeps the schedule of inventories and, on
// agents of the types 1 and 3, serves the requests for application data (app_data_worker.h). Start,
// stop and destruction as for every Thread.
#pragma once

#include "agent/thread/thread.h"
#include "discovery/app_data_worker.h"

namespace korvane {

class GenericAppDataProcessingThread : public Thread {
 public:
  // serves: there is no application data thread beside it.
  GenericAppDataProcessingThread(const AppDataParts& parts, bool serves);

 protected:
  void run() override;

 private:
  void keepSchedule();

  const AppDataParts _parts;
  const bool _serves;
};

}  // namespace korvane
