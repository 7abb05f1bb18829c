#include "host/agent_service.h"

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <thread>

namespace korvane::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr uint32_t kLookMs = 1000;
constexpr milliseconds kStopAgain(50);

[[noreturn]] void endProcess(int status, const char* what, uint32_t deadlineSeconds) {
  std::fprintf(stderr, "korvane-host: %s within %u s; ending the process\n", what, deadlineSeconds);
  std::fflush(stderr);
  std::_Exit(status);
}

}  // namespace

// How the agent's thread tells that startAgent has returned.
struct AgentService::Ending {
  std::mutex lock;
  std::condition_variable changed;
  bool ended = false;
  AgentInfo* info = nullptr;

  void set(AgentInfo* result) {
    const std::lock_guard hold(lock);
    info = result;
    ended = true;
    changed.notify_all();
  }
  bool wait(milliseconds limit) {
    std::unique_lock hold(lock);
    return changed.wait_for(hold, limit, [this] { return ended; });
  }
};

AgentService::AgentService(const AgentLibrary& library, HostEvents& events,
                           uint32_t stopDeadlineSeconds)
    : _library(library), _events(events), _stopDeadlineSeconds(stopDeadlineSeconds) {}

int AgentService::run() {
  Ending ending;
  std::thread agent([this, &ending] {
    ending.set(_library.startAgent());
    _events.agentEnded();
  });
  const int status = supervise(ending);
  agent.join();
  return status;
}

int AgentService::supervise(Ending& ending) {
  while (true) {
    switch (_events.wait(kLookMs)) {
      case HostEvent::stopRequested:
        return stop(ending);
      case HostEvent::agentEnded:
        return explainEnd(ending.info);
      case HostEvent::nothing:
        if (_library.shuttingDown()) return awaitSelfExit(ending);
    }
  }
}

int AgentService::stop(Ending& ending) {
  std::thread stopper([this, &ending] {
    do _library.stopAgent();
    while (!ending.wait(kStopAgain));
  });
  if (!awaitEnd(ending))
    endProcess(kExitNotReturned, "the agent did not return from its stop", _stopDeadlineSeconds);
  stopper.join();
  std::fprintf(stderr, "korvane-host: the agent has stopped\n");
  return kExitStopped;
}

int AgentService::awaitSelfExit(Ending& ending) {
  std::fprintf(stderr, "korvane-host: the agent is ending itself\n");
  if (!awaitEnd(ending))
    endProcess(kExitAgentEnded, "the agent ended itself and did not return", _stopDeadlineSeconds);
  return explainEnd(ending.info);
}

bool AgentService::awaitEnd(Ending& ending) const {
  return ending.wait(seconds(_stopDeadlineSeconds));
}

int AgentService::explainEnd(AgentInfo* info) {
  char name[64] = "";
  int32_t code = 0;
  for (int32_t i = 0; info && info->command(i, code, name, sizeof name); ++i) {
    if (code != kExitServiceCommand) continue;
    std::fprintf(stderr, "korvane-host: the agent ended itself (%s)\n", name);
    return kExitAgentEnded;
  }
  std::fprintf(stderr, "korvane-host: the agent ended without a request%s\n",
               info ? "" : " and without a mailbox");
  return info ? kExitAgentEnded : kExitFailed;
}

}  // namespace korvane::host
