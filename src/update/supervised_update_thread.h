// The update thread as an agent runs it: an error that ends UpdateThread::run is told, and after a
// minute run is entered again, on the same object and thread, with what it had. Start, stop and
// everything else are UpdateThread's; a stop ends the minute too.
#pragma once

#include "update/update_thread.h"

namespace korvane {

class SupervisedUpdateThread final : public UpdateThread {
 public:
  using UpdateThread::UpdateThread;

  static constexpr uint32_t kPauseMs = 60 * 1000;

  void run() override;
};

}  // namespace korvane
