#include "agent/run_parts.h"

#include "platform/platform.h"
#include "util/agent_run.h"

namespace korvane {

RunParts::RunParts() : counters(platform::current().clock), connector(platform::current().clock) {}

RunParts& runParts() {
  return AgentRun::current().part<RunParts>(RunPart::shared);
}

}  // namespace korvane
