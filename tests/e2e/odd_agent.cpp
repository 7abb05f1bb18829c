// Agent libraries that behave as none should, for the tests of the host: which way, the environment
// variable ODD_AGENT says.
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <string>

namespace korvane {
class AgentInfo;
}

namespace {

std::mutex lock;
std::condition_variable changed;
bool objectExists = false;
bool stopped = false;
bool shuttingDown = false;

bool is(const char* way) {
  const char* set = std::getenv("ODD_AGENT");
  return set && std::string(set) == way;
}

void pass(std::unique_lock<std::mutex>& hold, int milliseconds) {
  changed.wait_for(hold, std::chrono::milliseconds(milliseconds), [] { return false; });
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) korvane::AgentInfo* startAgent() {
  std::unique_lock hold(lock);
  if (is("late")) pass(hold, 1000);
  objectExists = true;
  if (is("ends-itself")) shuttingDown = true;
  changed.wait(hold, [] { return stopped && !is("never-returns"); });
  return nullptr;
}

__attribute__((visibility("default"))) const char* stopAgent() {
  const std::lock_guard hold(lock);
  if (objectExists && !is("ends-itself")) stopped = true;
  changed.notify_all();
  return "The agent STOPPED and returned";
}

__attribute__((visibility("default"))) bool isShuttingDown() asm(
    "_ZN7korvane11AgentConfig19isAgentShuttingDownEv");
bool isShuttingDown() {
  const std::lock_guard hold(lock);
  return shuttingDown;
}

__attribute__((visibility("default"))) bool isStarted() asm(
    "_ZN7korvane11AgentConfig14isAgentStartedEv");
bool isStarted() {
  const std::lock_guard hold(lock);
  return objectExists;
}

}  // extern "C"
