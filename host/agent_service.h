// Runs the agent for as long as the service is wanted.
//
// The agent gets a thread of its own; the main thread waits for a request to stop, for the agent's end,
// and looks once a second at the agent's shutting-down flag, so that an agent that ends itself is noticed.
// A stop is repeated until the agent has returned: one that comes before the agent object exists is lost.
// What does not return within the stop deadline is ended with the process, with a line that says so last.
#pragma once

#include <cstdint>

#include "host/agent_library.h"
#include "host/host_events.h"

namespace korvane::host {

// Exit statuses of the program.
enum ExitStatus : int {
  kExitStopped = 0,      // stopped on request
  kExitFailed = 1,       // the library could not be used
  kExitAgentEnded = 3,   // the agent ended itself: start the service again
  kExitNotReturned = 4,  // the agent did not return from a requested stop within the deadline
};

class AgentService {
 public:
  // Longer than the agent's own longest wait for its threads, 31 seconds.
  static constexpr uint32_t kStopDeadlineSeconds = 35;

  AgentService(const AgentLibrary& library, HostEvents& events, uint32_t stopDeadlineSeconds);

  // Returns the exit status, or ends the process with it when the agent does not return.
  int run();

 private:
  struct Ending;
  int supervise(Ending& ending);
  int stop(Ending& ending);
  int awaitSelfExit(Ending& ending);
  bool awaitEnd(Ending& ending) const;
  static int explainEnd(AgentInfo* info);

  const AgentLibrary& _library;
  HostEvents& _events;
  uint32_t _stopDeadlineSeconds;
};

}  // namespace korvane::host
