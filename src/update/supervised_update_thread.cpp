#include "update/supervised_update_thread.h"

#include "eventlog/event_log.h"
#include "util/errors.h"

namespace korvane {

// Other exceptions end the thread: it was asked to, or the system has no lock left to give.
void SupervisedUpdateThread::run() {
  for (;;) {
    int code = 0;
    try {
      return UpdateThread::run();
    } catch (const AgentError& error) {
      code = error.code();
    }
    if (stopToken().sleepFor(kPauseMs)) return;
    eventlog::event(EventId::updateThreadGoesOn, "UpdateThread", {kPauseMs / 1000, code});
  }
}

}  // namespace korvane
