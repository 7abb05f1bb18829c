// Runs the agent for as long as the service is wanted.
//
// The agent runs on its own thread; the main thread waits for a stop request or the agent's end,
// and checks the agent's shutting-down flag once a second, to notice an agent that ends itself. A
// stop is repeated until the agent has returned: one that comes before the agent object exists is
// lost. An agent that does not return within the stop deadline is terminated with the process,
// after a final line that says so.
//
// The caller may listen to the service's states. Each is reported when it is entered, and starting
// and stopping are repeated, at least once a second, for as long as they last. The service is
// running once the agent reports that it is up; an unreachable server does not delay that.
#pragma once

#include <cstdint>
#include <functional>

#include "host/agent_library.h"
#include "host/host_events.h"

namespace korvane::host {

// Exit statuses of the program, and of the service that it is; above 100: invalid command line.
enum ExitStatus : int {
  kExitStopped = 0,      // stopped on request
  kExitFailed = 1,       // the library could not be used, or the command could not be carried out
  kExitAgentEnded = 3,   // the agent ended itself: start the service again
  kExitNotReturned = 4,  // the agent did not return from a requested stop within the deadline
  kExitNoService = 5,    // there is no service of that name
  kExitOtherService = 6  // a service of that name runs another program
};

enum class ServiceState { starting, running, stopping };
using StateListener = std::function<void(ServiceState)>;

class AgentService {
 public:
  // Longer than the agent's own longest wait for its threads, 31 seconds.
  static constexpr uint32_t kStopDeadlineSeconds = 35;

  // `listener` is called on the thread of run().
  AgentService(const AgentLibrary& library, HostEvents& events, uint32_t stopDeadlineSeconds,
               StateListener listener = {});

  // Returns the exit status, or ends the process with it when the agent does not return.
  int run();

 private:
  struct Ending;
  void tell(ServiceState state) const;
  bool lookForStart();
  int supervise(Ending& ending);
  int stop(Ending& ending);
  int awaitSelfExit(Ending& ending);
  bool awaitEnd(Ending& ending) const;
  static int explainEnd(AgentInfo* info);

  const AgentLibrary& _library;
  HostEvents& _events;
  const uint32_t _stopDeadlineSeconds;
  const StateListener _listener;
};

}  // namespace korvane::host
