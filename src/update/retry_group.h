// The countdowns of the update thread. All of them count cycles of about one second.
//
// A value type, used by the update thread alone.
#pragma once

#include <cstdint>

namespace korvane {

// A countdown that is loaded with its interval when it is below 1 and counts down otherwise; -1 while off.
inline int32_t steppedCountdown(int32_t countdown, bool enabled, uint32_t interval) {
  if (!enabled) return -1;
  if (countdown < 1) return interval > INT32_MAX ? INT32_MAX : static_cast<int32_t>(interval);
  return countdown - 1;
}

// What is to be asked of the server again, and when.
struct RetryGroup {
  static constexpr int32_t kInterval = 5;

  bool pending = false;
  int32_t countdown = kInterval;

  // Once a cycle, while pending.
  void step() {
    if (pending) countdown = steppedCountdown(countdown, true, kInterval);
  }
  bool due() const { return pending && countdown == 0; }
  void clear() { *this = RetryGroup(); }
};

// The group of configuration and policy, which also counts the server's refusals.
struct ConfigRetryGroup : RetryGroup {
  int count = 0;
  bool both = false;  // configuration and policy are asked for together

  void clear() { *this = ConfigRetryGroup(); }
};

}  // namespace korvane
