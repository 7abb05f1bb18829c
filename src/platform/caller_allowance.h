// What ordinary callers of a pipe may cost: a small share of one core's processor time, measured on
// the thread that serves them, whatever they ask and however often. Who has used it up waits; a
// caller that asks now and then never notices.
//
//   allowance.settle(/*theirs=*/true, now, cpu);   // what the thread did since the last call was theirs
//   if (uint32_t ms = allowance.pauseMs()) ...     // nothing more for them for so long
//
// A plain value, of one thread. Units: microseconds, of any clock that does not go back.
#pragma once

#include <algorithm>
#include <cstdint>

namespace korvane::platform {

class CallerAllowance {
 public:
  static constexpr int64_t kShareOf = 40;     // one part in so many: 2.5 % of a core
  static constexpr int64_t kMostUs = 30'000;  // what may be saved up
  static constexpr int64_t kLeastPauseMs =
      50;  // fewer, longer pauses cost less than many short ones

  void settle(bool theirs, int64_t nowUs, int64_t cpuUs) {
    if (_begun) {
      _leftUs = std::min(kMostUs, _leftUs + (nowUs - _nowUs) / kShareOf);
      if (theirs) _leftUs -= cpuUs - _cpuUs;
    }
    _begun = true;
    _nowUs = nowUs;
    _cpuUs = cpuUs;
  }
  // How long there is nothing left; 0 when there is.
  uint32_t pauseMs() const {
    if (_leftUs >= 0) return 0;
    return static_cast<uint32_t>(std::max(kLeastPauseMs, -_leftUs * kShareOf / 1000));
  }

 private:
  bool _begun = false;
  int64_t _leftUs = kMostUs;
  int64_t _nowUs = 0;
  int64_t _cpuUs = 0;
};

}  // namespace korvane::platform
