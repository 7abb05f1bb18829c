// The countdowns of the update thread. All of them count cycles of about one second.
//
// Value types, used by the update thread alone.
#pragma once

#include <cstdint>

namespace korvane {

// A countdown that is loaded with its interval when it is below 1 and counts down otherwise; -1 while off.
inline int32_t steppedCountdown(int32_t countdown, bool enabled, uint32_t interval) {
  if (!enabled) return -1;
  if (countdown < 1) return interval > INT32_MAX ? INT32_MAX : static_cast<int32_t>(interval);
  return countdown - 1;
}

// What is to be asked of the server again because it said to come back later, and when.
struct RetryGroup {
  static constexpr int32_t kInterval = 5;
  static constexpr int kMaxRetry = 10;

  bool pending = false;
  int32_t countdown = kInterval;
  int count = 0;  // refusals since the last answer without one
  int kinds = 0;  // what is asked for again, as update kinds

  // Once a cycle, while pending.
  void step() {
    if (pending) countdown = steppedCountdown(countdown, true, kInterval);
  }
  bool due() const { return pending && countdown <= 0; }

  // The server said to come back later. After the tenth time in a row nothing is repeated until it is asked
  // for afresh; the count stays, so that a refusal of that request arms the group again.
  void refuse(int refusedKinds) {
    pending = ++count != kMaxRetry;
    kinds = pending ? refusedKinds : 0;
    if (!pending) countdown = kInterval;
  }
  // The exchange failed, or the server gave what was asked for.
  void clear() { *this = RetryGroup(); }
};

}  // namespace korvane
