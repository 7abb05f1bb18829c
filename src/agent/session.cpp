#include "agent/session.h"

#include <exception>
#include <memory>
#include <mutex>
#include <new>

#include "agent/composition.h"
#include "agent/korvane_agent.h"
#include "agent/thread/agent_info.h"
#include "agent/thread/stop_token.h"
#include "agent/thread/thread.h"
#include "agent/thread/thread_event.h"
#include "eventlog/event_log.h"
#include "util/thread_annotations.h"

namespace korvane {
namespace {

constexpr uint32_t kStopperStepMs = 1000;

// The language's own mutex: a start changes the platform under those that come to stop.
class CAPABILITY("mutex") SessionMutex {
 public:
  void lock() ACQUIRE() { _mutex.lock(); }
  void unlock() RELEASE() { _mutex.unlock(); }

 private:
  std::mutex _mutex;
};

class SCOPED_CAPABILITY SessionLock {
 public:
  explicit SessionLock(SessionMutex& mutex) ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
  ~SessionLock() RELEASE() { _mutex.unlock(); }
  SessionLock(const SessionLock&) = delete;
  SessionLock& operator=(const SessionLock&) = delete;

 private:
  SessionMutex& _mutex;
};

// One run of the agent, with the stops of it that are under way: it is taken down when they have left.
struct Session {
  KorvaneAgent agent;
  int stops = 0;
  ThreadEvent stopEnded{kStopperStepMs};  // a hint alone: the count is what is waited for
};

struct Holder {
  SessionMutex lock;
  bool starting GUARDED_BY(lock) = false;
  bool composing GUARDED_BY(lock) = false;  // a start has its platform; a stop may end its waits
  bool stopWhileComposing GUARDED_BY(lock) = false;
  Session* session GUARDED_BY(lock) = nullptr;
  std::unique_ptr<AgentInfo> info GUARDED_BY(lock);
};

// Never destroyed: a stop may come while the process ends.
Holder& holder() {
  static Holder& process = *new Holder;
  return process;
}

// The one start at a time, for a scope.
class Start {
 public:
  Start() {
    SessionLock hold(holder().lock);
    _mine = !holder().starting;
    holder().starting = true;
  }
  ~Start() {
    if (!_mine) return;
    SessionLock hold(holder().lock);
    holder().starting = holder().composing = false;
  }
  Start(const Start&) = delete;
  Start& operator=(const Start&) = delete;

  explicit operator bool() const { return _mine; }

  // The shutdown token is of this start: from now on a stop ends what the start waits for.
  static void letStop() {
    SessionLock hold(holder().lock);
    holder().composing = true;
    holder().stopWhileComposing = false;
  }

 private:
  bool _mine = false;
};

// Shows a session to those that stop it, for a scope; its end waits until the last of them has left.
class Published {
 public:
  explicit Published(Session& session) : _session(session) {
    SessionLock hold(holder().lock);
    holder().session = &session;
    _stoppedBefore = holder().stopWhileComposing;
  }
  ~Published() {
    {
      SessionLock hold(holder().lock);
      holder().session = nullptr;
    }
    while (stopsUnderWay()) awaitOne();
  }
  Published(const Published&) = delete;
  Published& operator=(const Published&) = delete;

  // A stop came while there was no session yet: the agent is not to run.
  bool stoppedBefore() const { return _stoppedBefore; }

 private:
  bool stopsUnderWay() {
    SessionLock hold(holder().lock);
    return _session.stops > 0;
  }
  void awaitOne() noexcept {
    try {
      _session.stopEnded.wait();
    } catch (const ThreadException&) {
    }
  }

  Session& _session;
  bool _stoppedBefore = false;
};

// One stop of the session that is published, for a scope.
class Stop {
 public:
  Stop() {
    SessionLock hold(holder().lock);
    _session = holder().session;
    if (!_session && holder().composing) stopComposing();
    if (!_session || _session->stops++ > 0) return;
    try {
      _session->stopEnded.reset();
    } catch (const ThreadException&) {
    }
  }
  ~Stop() {
    if (!_session) return;
    SessionLock hold(holder().lock);
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
  // Ends the waits of a start, of the first load for the lock file above all.
  static void stopComposing() REQUIRES(holder().lock) {
    holder().stopWhileComposing = true;
    try {
      shutdownToken().request();
    } catch (const ThreadException&) {
    }
  }

  Session* _session = nullptr;
};

// An AgentInfo that a thread left behind may still post to is never freed.
AgentInfo* renewInfo() {
  SessionLock hold(holder().lock);
  std::unique_ptr<AgentInfo>& info = holder().info;
  if (Thread::abandoned() > 0) static_cast<void>(info.release());
  info.reset(new (std::nothrow) AgentInfo);
  return info.get();
}

AgentInfo* runAgent() {
  try {
    Session session;
    AgentInfo* info = renewInfo();
    const Published published(session);
    if (!published.stoppedBefore()) session.agent.run(info);
    return info;
  } catch (const std::exception& error) {
    eventlog::event(kEventNotStarted, "KorvaneAgent", {error.what()});
    return nullptr;
  }
}

}  // namespace

AgentInfo* runSession(void (*adoptPlatform)()) {
  const Start start;
  if (!start) return nullptr;
  try {
    adoptPlatform();
    const Composition composition(&Start::letStop);
    return runAgent();
  } catch (...) {
    // The composition has told what it was; the host sees that there is no agent.
    return nullptr;
  }
}

void endSession() {
  const Stop stop;
  if (stop.session()) stop.session()->agent.shutdown();
}

}  // namespace korvane
