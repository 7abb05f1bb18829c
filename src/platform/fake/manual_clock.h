// A clock that moves only when a test moves it. Thread-safe.
#pragma once

#include <atomic>

#include "platform/clock.h"

namespace korvane::platform {

class ManualClock final : public Clock {
 public:
  // 2026-01-01 00:00:00 UTC
  static constexpr int64_t kStartWallMs = 1767225600000;

  int64_t monotonicMs() override { return _monotonic; }
  int64_t wallMs() override { return _wall; }

  // Lets time pass on both clocks.
  void advance(int64_t milliseconds) {
    _monotonic += milliseconds;
    _wall += milliseconds;
  }
  // Sets the wall clock alone, as an operator does.
  void setWall(int64_t milliseconds) { _wall = milliseconds; }

 private:
  std::atomic<int64_t> _monotonic{1000};
  std::atomic<int64_t> _wall{kStartWallMs};
};

}  // namespace korvane::platform
