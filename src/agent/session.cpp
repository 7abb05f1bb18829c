#include "agent/session.h"

#include <exception>
#include <new>
#include <utility>

#include "agent/agent_context.h"
#include "agent/composition.h"
#include "agent/korvane_agent.h"
#include "agent/thread/agent_info.h"
#include "agent/thread/exceptions.h"
#include "agent/thread/stop_token.h"
#include "agent/thread/thread_event.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr uint32_t kStopperStepMs = 1000;

}  // namespace

// One run of the agent, with the stops of it that are under way: it is taken down when they
// have left.
struct AgentPlace::Session {
  explicit Session(std::shared_ptr<AgentRun> of) : run(std::move(of)), agent(contextOfRun()) {}

  const std::shared_ptr<AgentRun> run;
  KorvaneAgent agent;
  int stops = 0;
  ThreadEvent stopEnded{kStopperStepMs};  // a hint alone: the count is what is waited for
};

// The one start at a time, for a scope.
class AgentPlace::Start {
 public:
  explicit Start(AgentPlace& place) : _place(place) {
    const ProcessLock hold(place._lock);
    _mine = !std::exchange(place._starting, true);
  }
  ~Start() {
    if (!_mine) return;
    std::shared_ptr<AgentRun> composed;  // goes when the lock is free again
    const ProcessLock hold(_place._lock);
    composed.swap(_place._composing);
    _place._starting = false;
  }
  Start(const Start&) = delete;
  Start& operator=(const Start&) = delete;

  explicit operator bool() const { return _mine; }

  // From now on a stop ends what the start waits for.
  void allowStop(const std::shared_ptr<AgentRun>& run) {
    const ProcessLock hold(_place._lock);
    _place._composing = run;
    _place._stopWhileComposing = false;
  }

 private:
  AgentPlace& _place;
  bool _mine = false;
};

// Shows a session to those that stop it, for a scope; its end waits until the last of them
// has left.
class AgentPlace::Published {
 public:
  Published(AgentPlace& place, Session& session) : _place(place), _session(session) {
    const ProcessLock hold(place._lock);
    place._session = &session;
    _stoppedBefore = place._stopWhileComposing;
  }
  ~Published() {
    {
      const ProcessLock hold(_place._lock);
      _place._session = nullptr;
    }
    while (stopsUnderWay()) awaitOne();
  }
  Published(const Published&) = delete;
  Published& operator=(const Published&) = delete;

  // A stop came while there was no session yet: the agent is not to run.
  bool stoppedBefore() const { return _stoppedBefore; }

 private:
  bool stopsUnderWay() {
    const ProcessLock hold(_place._lock);
    return _session.stops > 0;
  }
  void awaitOne() noexcept {
    try {
      _session.stopEnded.wait();
    } catch (const ThreadException&) {
    }
  }

  AgentPlace& _place;
  Session& _session;
  bool _stoppedBefore = false;
};

// One stop of the session that is published, for a scope.
class AgentPlace::Stop {
 public:
  explicit Stop(AgentPlace& place) : _place(place) {
    if (const std::shared_ptr<AgentRun> composing = enter()) stopComposing(composing);
  }
  ~Stop() {
    if (!_session) return;
    const ProcessLock hold(_place._lock);
    if (--_session->stops > 0) return;
    try {
      _session->stopEnded.post();
    } catch (const ThreadException&) {
    }
  }
  Stop(const Stop&) = delete;
  Stop& operator=(const Stop&) = delete;

  Session* session() const { return _session; }

 private:
  // Gives the run of a start that has no session yet.
  std::shared_ptr<AgentRun> enter() {
    const ProcessLock hold(_place._lock);
    _session = _place._session;
    if (!_session) {
      _place._stopWhileComposing = true;
      return _place._composing;
    }
    if (_session->stops++ > 0) return nullptr;
    try {
      _session->stopEnded.reset();
    } catch (const ThreadException&) {
    }
    return nullptr;
  }

  // Ends the waits of a start, of the first load for the lock file above all. What is told of it
  // takes locks of its own, so none of the process's is held.
  static void stopComposing(const std::shared_ptr<AgentRun>& run) {
    const AgentRunScope inRun(run);
    try {
      shutdownToken().request();
    } catch (const ThreadException&) {
    }
  }

  AgentPlace& _place;
  Session* _session = nullptr;
};

AgentPlace::AgentPlace() = default;
AgentPlace::~AgentPlace() = default;

// The run keeps it too: a thread that is left behind may still post to it.
AgentInfo* AgentPlace::renewInfo(AgentRun& run) {
  std::shared_ptr<AgentInfo> made;
  try {
    made = std::make_shared<AgentInfo>();
    run.keep(made);
  } catch (const std::bad_alloc&) {
    made.reset();
  }
  const ProcessLock hold(_lock);
  _info = std::move(made);
  return _info.get();
}

AgentInfo* AgentPlace::runIn(const std::shared_ptr<AgentRun>& run) {
  try {
    Session session(run);
    AgentInfo* info = renewInfo(*run);
    const Published published(*this, session);
    if (!published.stoppedBefore()) session.agent.run(info);
    return info;
  } catch (const std::exception& error) {
    eventlog::event(EventId::agentNotStarted, "KorvaneAgent", {error.what()});
    return nullptr;
  }
}

AgentInfo* AgentPlace::run(const std::function<std::shared_ptr<AgentRun>()>& makeRun) {
  Start start(*this);
  if (!start) return nullptr;
  try {
    const std::shared_ptr<AgentRun> run = makeRun();
    const AgentRunScope inRun(run);
    start.allowStop(run);
    const Composition composition;
    return runIn(run);
  } catch (...) {
    // The composition has told what it was; the host sees that there is no agent.
    return nullptr;
  }
}

void AgentPlace::end() {
  const Stop stop(*this);
  if (!stop.session()) return;
  const AgentRunScope inRun(stop.session()->run);
  stop.session()->agent.shutdown();
}

}  // namespace korvane
