#include "agent/thread/run_threading.h"

#include "agent/thread/stop_token.h"
#include "agent/thread/thread_key.h"
#include "platform/platform.h"

namespace korvane {

std::shared_ptr<AgentRun> thisRun() {
  return AgentRun::current().shared_from_this();
}

platform::Threading& threadingOfThisRun() {
  return platform::current().threading;
}

ThreadKey& threadKeyOfThisRun() {
  return AgentRun::current().part<ThreadKey>(RunPart::threadKey);
}

std::atomic<int>& abandonedThreadsOfThisRun() {
  return AgentRun::current().part<std::atomic<int>>(RunPart::abandonedThreads);
}

StopToken& shutdownToken() {
  return AgentRun::current().part<StopToken>(RunPart::stopToken);
}

}  // namespace korvane
