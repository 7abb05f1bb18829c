// When the cloud connector last sent a request over the command channel. Threads: any.
#pragma once

#include <atomic>
#include <cstdint>

#include "platform/fwd.h"

namespace korvane {

class ConnectorPresence {
 public:
  // So long after its last command it counts as there.
  static constexpr int kLatelyMs = 300000;

  // clock: outlives the object.
  explicit ConnectorPresence(platform::Clock& clock) : _clock(clock) {}
  void noteAsked();
  bool askedLately() const;

 private:
  static constexpr int64_t kNever = -1;

  platform::Clock& _clock;
  std::atomic<int64_t> _lastMs{kNever};  // monotonic
};

}  // namespace korvane
