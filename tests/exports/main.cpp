#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <thread>

#include "outside.h"

static int gFailed = 0;

void expect(bool holds, const char* what) {
  if (holds) return;
  ++gFailed;
  std::printf("does not hold: %s\n", what);
}

STRING text(const char* narrow) {
  return STRING(narrow);
}

void pauseBriefly() {
  std::this_thread::sleep_for(std::chrono::milliseconds(10));
}

static const char kStopped[] = "The agent STOPPED and returned";

// The agent runs on a thread of the host's own and is stopped from another; a stop that comes
// before there is an agent does nothing.
static void useFunctions() {
  expect(std::strcmp(stopAgent(), kStopped) == 0, "a stop before any start answers");
  korvane::AgentInfo* info = nullptr;
  std::atomic<bool> returned{false};
  std::thread host([&] {
    info = startAgent();
    returned = true;
  });
  while (!returned) {
    expect(std::strcmp(stopAgent(), kStopped) == 0, "a stop answers");
    pauseBriefly();
  }
  host.join();
  expect(info != nullptr, "the mailbox outlives the run");
}

// outside FOLDER: a folder of its own, with the separator at its end.
int main(int, char** arguments) {
  const STRING folder = text(arguments[1]);
  useSection();
  useFileLogPointer(folder);
  useAgentConfig();
  useDriverConfig(folder);
  useHttpsHandler();
  useThreads();
  useFunctions();
  std::printf("%d do not hold\n", gFailed);
  return gFailed == 0 ? 0 : 1;
}
