// What the host's main thread waits for: a request to stop, from whoever runs the service, and the end of
// the agent's thread.
//
// POSIX: SIGINT and SIGTERM are the requests; their handlers, and agentEnded(), write to a pipe of the
// process. SIGPIPE is ignored, since a server that hangs up must not end the agent.
// Lifetime: one object a process. Threads: wait() belongs to the main thread, agentEnded() to any.
#pragma once

#include <cstdint>
#include <string>

namespace korvane::host {

enum class HostEvent { nothing, stopRequested, agentEnded };

class HostEvents {
 public:
  HostEvents();
  ~HostEvents();
  HostEvents(const HostEvents&) = delete;
  HostEvents& operator=(const HostEvents&) = delete;

  // The next event, or nothing after that many milliseconds.
  HostEvent wait(uint32_t timeoutMs);
  void agentEnded();
};

// Options that the agent library reads from the environment of its process.
void setEnvironment(const char* name, const std::string& value);

// The directory of this program.
std::string programDirectory();

}  // namespace korvane::host
