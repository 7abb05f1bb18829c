#include "host/agent_service.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>

#include "host/messages.h"

namespace korvane::host {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;

constexpr uint32_t kLookMs = 1000;
constexpr uint32_t kStartLookMs = 20;
constexpr milliseconds kStopAgain(50);

[[noreturn]] void endProcess(int status, const char* what, uint32_t deadlineSeconds) {
  say(std::string(what) + " within " + std::to_string(deadlineSeconds) + " s; ending the process");
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
                           uint32_t stopDeadlineSeconds, StateListener listener)
    : _library(library),
      _events(events),
      _stopDeadlineSeconds(stopDeadlineSeconds),
      _listener(std::move(listener)) {}

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

void AgentService::tell(ServiceState state) const {
  if (_listener) _listener(state);
}

bool AgentService::lookForStart() {
  const bool started = _library.started();
  tell(started ? ServiceState::running : ServiceState::starting);
  return started;
}

int AgentService::supervise(Ending& ending) {
  bool started = false;
  while (true) {
    if (!started) started = lookForStart();
    switch (_events.wait(started ? kLookMs : kStartLookMs)) {
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
    endProcess(kExitNotReturned, "the agent did not stop", _stopDeadlineSeconds);
  stopper.join();
  say("the agent has stopped");
  return kExitStopped;
}

int AgentService::awaitSelfExit(Ending& ending) {
  say("the agent is ending itself");
  if (!awaitEnd(ending))
    endProcess(kExitAgentEnded, "the agent ended itself but did not return", _stopDeadlineSeconds);
  return explainEnd(ending.info);
}

bool AgentService::awaitEnd(Ending& ending) const {
  const auto deadline = steady_clock::now() + seconds(_stopDeadlineSeconds);
  while (true) {
    tell(ServiceState::stopping);
    const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
    if (ending.wait(std::min(left, milliseconds(kLookMs)))) return true;
    if (steady_clock::now() >= deadline) return false;
  }
}

int AgentService::explainEnd(AgentInfo* info) {
  char name[64] = "";
  int32_t code = 0;
  for (int32_t i = 0; info && info->command(i, code, name, sizeof name); ++i) {
    if (code != kExitServiceCommand) continue;
    say(std::string("the agent ended itself (") + name + ")");
    return kExitAgentEnded;
  }
  say(std::string("the agent ended without a stop request") +
      (info ? "" : " and without a mailbox"));
  return info ? kExitAgentEnded : kExitFailed;
}

}  // namespace korvane::host
