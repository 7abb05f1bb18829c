// A sticky interrupt that a poll(2) can wait for beside a descriptor. Only for the POSIX siblings.
#pragma once

#include <atomic>

#include "platform/descriptor_posix.h"
#include "platform/monitor_posix.h"

namespace korvane::platform {

enum class PollResult { ready, timedOut, interrupted, failed };

// Raised once, by any thread, and never lowered.
class Interrupt {
 public:
  Interrupt();
  // False when the system had no descriptor left.
  bool valid() const { return static_cast<bool>(_event); }
  void raise();
  bool raised() const { return _raised; }
  int descriptor() const { return _event.get(); }

 private:
  Descriptor _event;
  std::atomic<bool> _raised{false};
};

// Waits until `descriptor` has one of poll(2)'s `events`, an error or a hang-up. An interrupt wins
// over readiness. `failed` leaves errno set.
[[nodiscard]] PollResult pollFor(int descriptor, short events, const Deadline& deadline,
                                 const Interrupt& interrupt);
// The same, or until `other` can be read: `which` is the one that is ready, `descriptor` when both
// are. A negative descriptor is none.
[[nodiscard]] PollResult pollForEither(int descriptor, short events, int other,
                                       const Deadline& deadline, const Interrupt& interrupt,
                                       int& which);

}  // namespace korvane::platform
