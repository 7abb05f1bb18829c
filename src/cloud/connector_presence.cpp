#include "cloud/connector_presence.h"

#include <atomic>
#include <cstdint>

#include "platform/clock.h"
#include "platform/platform.h"
#include "util/agent_run.h"

namespace korvane {
namespace {

constexpr int64_t kNever = -1;

struct Asked {
  std::atomic<int64_t> lastMs{kNever};
};

std::atomic<int64_t>& lastAskedMs() {
  return AgentRun::current().part<Asked>(RunPart::connectorPresence).lastMs;
}

}  // namespace

void ConnectorPresence::noteAsked() {
  lastAskedMs() = platform::current().clock.monotonicMs();
}

bool ConnectorPresence::askedLately() {
  const int64_t last = lastAskedMs();
  return last != kNever && platform::current().clock.monotonicMs() - last <= kLatelyMs;
}

}  // namespace korvane
