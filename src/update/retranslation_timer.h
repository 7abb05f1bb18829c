// The utility thread's countdown to the next automatic retranslation, in seconds. While it is off
// it keeps what is left and answers -1.
//
// One object per run, made by the utility thread's start. Threads: any.
#pragma once

#include <cstdint>

#include "agent/thread/locks.h"

namespace korvane {

class RetranslationTimer {
 public:
  RetranslationTimer(int32_t interval, bool enabled);

  int32_t remaining();
  void setEnabled(bool enabled);
  // Once a second: counts down, or starts over when nothing is left.
  void step();

 private:
  Win32Mutex _lock;
  const int32_t _interval;
  int32_t _remaining GUARDED_BY(_lock);
  bool _enabled GUARDED_BY(_lock);
};

}  // namespace korvane
