// The application data thread, of agents of the types 0 and 2: serves the requests for application
// data over the local channel (app_data_worker.h). Start, stop and destruction as for every Thread.
#pragma once

#include "agent/thread/thread.h"
#include "discovery/app_data_worker.h"

namespace korvane {

class AppDataProcessingThread : public Thread {
 public:
  explicit AppDataProcessingThread(const AppDataParts& parts);

 protected:
  void run() override;

 private:
  const AppDataParts _parts;
};

}  // namespace korvane
