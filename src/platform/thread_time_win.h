// How long a thread has run. Only for the Win32 siblings of the seam.
//
// The system's own count of a thread's time (GetThreadTimes) goes in ticks of 15.6 ms, and whoever
// is woken by a tick and sleeps before the next one is not counted at all. So the processor's
// cycles of the thread are counted, where the system does that.
// Threads: one, which is the one that is measured.
#pragma once

#include <cstdint>

namespace korvane::platform {

class ThreadTime {
 public:
  ThreadTime();
  // Microseconds of a clock that does not go back.
  int64_t wallUs() const;
  // Microseconds that the calling thread has run since an arbitrary moment.
  int64_t cpuUs();

 private:
  int64_t _frequency = 1;
  const uint64_t _startCycle;
  int64_t _startUs = 0;
  uint64_t _cycles = 0;  // of the thread, when it was last asked
  double _ranUs = 0;
};

}  // namespace korvane::platform
