#include "agent/exports.h"

#include <cstdio>
#include <memory>
#include <new>

#include "agent/composition.h"
#include "agent/korvane_agent.h"
#include "agent/thread/agent_info.h"
#include "agent/thread/locks.h"
#include "agent/thread/stop_token.h"
#include "agent/thread/thread.h"
#include "agent/thread/thread_event.h"

namespace korvane {
namespace {

// One start of the agent, with those that are stopping it: it is taken down when they have left.
struct Session {
  KorvaneAgent agent;
  int stoppers = 0;
  ThreadEvent unused;  // set while there is no stopper
};

struct Holder {
  Win32Mutex lock;
  bool starting GUARDED_BY(lock) = false;
  Session* session GUARDED_BY(lock) = nullptr;
  std::unique_ptr<AgentInfo> info GUARDED_BY(lock);
};

// Never destroyed: a stop may come while the process ends.
Holder& holder() {
  static Holder& process = *new Holder;
  return process;
}

bool claimStart() {
  Synchronized hold(holder().lock);
  if (holder().starting) return false;
  holder().starting = true;
  return true;
}

void endStart() {
  Synchronized hold(holder().lock);
  holder().starting = false;
}

// An AgentInfo that a thread left behind may still post to is never freed.
AgentInfo* renewInfo() {
  Synchronized hold(holder().lock);
  std::unique_ptr<AgentInfo>& info = holder().info;
  if (Thread::abandoned() > 0) static_cast<void>(info.release());
  info.reset(new (std::nothrow) AgentInfo);
  return info.get();
}

void publish(Session* session) {
  Synchronized hold(holder().lock);
  holder().session = session;
  if (session) session->unused.post();
}

void withdraw(Session& session) {
  publish(nullptr);
  session.unused.wait();
}

Session* beginStop() {
  Synchronized hold(holder().lock);
  Session* session = holder().session;
  if (!session) return nullptr;
  ++session->stoppers;
  session->unused.reset();
  return session;
}

void endStop(Session& session) {
  Synchronized hold(holder().lock);
  if (--session.stoppers == 0) session.unused.post();
}

AgentInfo* runAgent() {
  const Composition composition;
  Session session;
  AgentInfo* info = renewInfo();
  publish(&session);
  session.agent.run(info);
  withdraw(session);
  return info;
}

}  // namespace
}  // namespace korvane

korvane::AgentInfo* startAgent() {
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  korvane::AgentInfo* info = nullptr;
  try {
    if (!korvane::claimStart()) return nullptr;
    info = korvane::runAgent();
  } catch (...) {
    // What failed has been traced where it happened; the host sees that the agent is not there any more.
  }
  try {
    korvane::endStart();
  } catch (...) {
  }
  return info;
}

const char* stopAgent() {
  try {
    if (korvane::Session* session = korvane::beginStop()) {
      session->agent.shutdown();
      korvane::endStop(*session);
    }
  } catch (...) {
    // A stop that cannot be carried out ends by the host's deadline.
  }
  return "The agent STOPPED and returned";
}
