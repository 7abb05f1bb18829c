// Agent libraries that behave as none should, for the tests of the host: which way, the file
// "odd-agent" in the installation's root says.
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <string>

#include "agent/thread/agent_info.h"
#include "platform/platform.h"
#include "platform/system_info.h"
#include "tests/support/temp_directory.h"
#include "util/export.h"

namespace korvane {

class KORVANE_EXPORT AgentConfig {
 public:
  static bool isAgentShuttingDown();
  static bool isAgentStarted();
};

namespace {

std::mutex lock;
std::condition_variable changed;
bool objectExists = false;
bool stopped = false;
bool shuttingDown = false;

AgentInfo mailbox;

std::string wayWritten() {
  const std::string root = platform::current().systemInfo.environment("KORVANE_INSTALL_ROOT");
  std::string way;
  std::ifstream(tests::fsPath(root) / "odd-agent") >> way;
  return way;
}

bool is(const char* way) {
  static const std::string written = wayWritten();
  return written == way;
}

void pass(std::unique_lock<std::mutex>& hold, int milliseconds) {
  changed.wait_for(hold, std::chrono::milliseconds(milliseconds), [] { return false; });
}

}  // namespace

bool AgentConfig::isAgentShuttingDown() {
  const std::lock_guard hold(lock);
  return shuttingDown;
}

bool AgentConfig::isAgentStarted() {
  const std::lock_guard hold(lock);
  return objectExists;
}

}  // namespace korvane

extern "C" {

KORVANE_EXPORT korvane::AgentInfo* startAgent() {
  using namespace korvane;
  std::unique_lock hold(lock);
  if (is("returns-at-once")) return nullptr;
  if (is("posts-its-end")) {
    mailbox.post({kExitServiceCommand, kExitServiceName});
    return &mailbox;
  }
  if (is("late")) pass(hold, 1000);
  objectExists = true;
  if (is("ends-itself")) shuttingDown = true;
  changed.wait(hold, [] { return stopped && !is("never-returns"); });
  if (is("slow")) pass(hold, 2500);
  return nullptr;
}

KORVANE_EXPORT const char* stopAgent() {
  using namespace korvane;
  const std::lock_guard hold(lock);
  if (objectExists && !is("ends-itself")) stopped = true;
  changed.notify_all();
  return "The agent STOPPED and returned";
}

}  // extern "C"
