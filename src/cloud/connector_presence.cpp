#include "cloud/connector_presence.h"

#include <atomic>
#include <cstdint>

#include "platform/clock.h"
#include "platform/platform.h"

namespace korvane {
namespace {

constexpr int64_t kNever = -1;
std::atomic<int64_t> lastAskedMs{kNever};

}  // namespace

void ConnectorPresence::noteAsked() {
  lastAskedMs = platform::current().clock.monotonicMs();
}

bool ConnectorPresence::askedLately() {
  const int64_t last = lastAskedMs;
  return last != kNever && platform::current().clock.monotonicMs() - last <= kLatelyMs;
}

void ConnectorPresence::reset() {
  lastAskedMs = kNever;
}

}  // namespace korvane
