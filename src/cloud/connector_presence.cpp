#include "cloud/connector_presence.h"

#include "platform/clock.h"

namespace korvane {

void ConnectorPresence::noteAsked() {
  _lastMs = _clock.monotonicMs();
}

bool ConnectorPresence::askedLately() const {
  const int64_t last = _lastMs;
  return last != kNever && _clock.monotonicMs() - last <= kLatelyMs;
}

}  // namespace korvane
