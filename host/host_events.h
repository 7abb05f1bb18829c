// What the host's main thread waits for: a request to stop, from whoever runs the service,
// and the end of the agent's thread.
//
// POSIX: SIGINT and SIGTERM are the terminal's requests; their handlers, and the
// operations, write to a pipe of the process. SIGPIPE is ignored, since a server that hangs
// up must not end the agent.
// Windows: Ctrl-C, Ctrl-Break and the end of the session are the terminal's requests. A service
// ignores them: a user's log-off must not end it. A named event can be a request too.
// Lifetime: one object per process. Threads: wait() belongs to one thread, the other operations to
// any.
#pragma once

#include <cstdint>
#include <string>

namespace korvane::host {

enum class HostEvent { nothing, stopRequested, agentEnded };

enum class StopRequests {
  fromTerminal,  // and through requestStop()
  fromCaller,    // through requestStop() alone
};

class HostEvents {
 public:
  // Windows: the event of that name, made when it is not there, is a request when it is set.
  explicit HostEvents(StopRequests requests, const std::string& stopEvent = {});
  ~HostEvents();
  HostEvents(const HostEvents&) = delete;
  HostEvents& operator=(const HostEvents&) = delete;

  // The next event, or nothing after that many milliseconds.
  HostEvent wait(uint32_t timeoutMs);
  void requestStop();
  void agentEnded();
};

// Options that the agent library reads from the environment of its process.
void setEnvironment(const char* name, const std::string& value);

// This program's file, and its directory.
std::string programPath();
std::string programDirectory();

}  // namespace korvane::host
