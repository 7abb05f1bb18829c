// The countdowns of the update thread. All of them count cycles of about one second.
//
// Value types, used by the update thread alone.
#pragma once

#include <cstdint>

namespace korvane {

// A countdown that is loaded with its interval when it is below 1 and counts down
// otherwise; -1 while off.
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

  // The server said to come back later. After the tenth time in a row nothing is repeated until it
  // is asked for afresh; the count stays, so that a refusal of that request arms the group again,
  // and then for as long as the server refuses.
  void refuse(int refusedKinds) {
    pending = ++count != kMaxRetry;
    kinds = pending ? refusedKinds : 0;
    if (!pending) countdown = kInterval;
  }
  // The same for what is given up for good then: with ten refusals in a row behind it, a request
  // that is made afresh is not repeated.
  void refuseWithinLimit(int refusedKinds) {
    pending = ++count < kMaxRetry;
    kinds = pending ? refusedKinds : 0;
    if (!pending) countdown = kInterval;
  }
  // The server refused it for another reason: it is not asked for again, and the refusals
  // before still count.
  void giveUp() {
    const int refusals = count;
    clear();
    count = refusals;
  }
  // The exchange failed, or the server gave what was asked for.
  void clear() { *this = RetryGroup(); }
};

// When a status that failed is sent again although no poll comes: after 2, 4, 8 ... cycles,
// and every 300.
struct StatusRepeat {
  static constexpr int32_t kFirstPause = 2;
  static constexpr int32_t kLongestPause = 300;

  int32_t pause = 0;  // before the next one; 0: there is none
  int32_t countdown = 0;

  void failed() {
    pause = pause == 0 ? kFirstPause : pause < kLongestPause / 2 ? pause * 2 : kLongestPause;
    countdown = pause;
  }
  // Once a cycle in which no poll is due.
  void step() {
    if (countdown > 0) --countdown;
  }
  bool due() const { return pause > 0 && countdown == 0; }
  void clear() { *this = StatusRepeat(); }
};

}  // namespace korvane
