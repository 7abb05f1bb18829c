// A place where one agent runs at a time: which may start, and which is stopped.
//
// Threads: any. end() may come at any moment, any number of times at once. One that comes while a
// start is put together ends what that waits for and does not wait for its end; the run then has no
// agent. One that comes before does nothing. Nothing throws out of either, and whatever fails in a
// run or in its stop, the calls return and the next start can proceed. The exported functions share
// one place; agents in places of their own run beside each other.
#pragma once

#include <functional>
#include <memory>

#include "util/agent_run.h"
#include "util/process_mutex.h"

namespace korvane {

class AgentInfo;

class AgentPlace {
 public:
  AgentPlace();
  ~AgentPlace();  // no agent runs in it, and nobody stops one
  AgentPlace(const AgentPlace&) = delete;
  AgentPlace& operator=(const AgentPlace&) = delete;

  // Runs an agent on the calling thread until it has stopped, or was stopped before it was made.
  // `makeRun` is called once the start is sure to be the only one here. The AgentInfo lives until
  // the next start; null when an agent runs already, when this one could not be put together, or
  // when there was no memory for the AgentInfo.
  AgentInfo* run(const std::function<std::shared_ptr<AgentRun>()>& makeRun);

  // Stops the agent that runs, if one does; returns when its main routine is over.
  void end();

 private:
  struct Session;
  class Start;
  class Published;
  class Stop;

  AgentInfo* runIn(const std::shared_ptr<AgentRun>& run);
  AgentInfo* renewInfo(AgentRun& run);

  ProcessMutex _lock;
  bool _starting GUARDED_BY(_lock) = false;
  std::shared_ptr<AgentRun> _composing GUARDED_BY(_lock);  // a stop may end its waits
  bool _stopWhileComposing GUARDED_BY(_lock) = false;
  Session* _session GUARDED_BY(_lock) = nullptr;
  std::shared_ptr<AgentInfo> _info GUARDED_BY(_lock);
};

}  // namespace korvane
