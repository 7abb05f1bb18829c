// Time. Everything that waits or measures an interval uses the monotonic clock; the wall
// clock is only data (time stamps, file names), because an operator or a time server may
// set it at any moment. Thread-safe.
#pragma once

#include <cstdint>

namespace korvane::platform {

class Clock {
 public:
  virtual ~Clock() = default;
  // Milliseconds since an unspecified start; never goes back.
  virtual int64_t monotonicMs() = 0;
  // Milliseconds since 1970-01-01 00:00:00 UTC, as the system believes.
  virtual int64_t wallMs() = 0;
};

}  // namespace korvane::platform
