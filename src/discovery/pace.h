// Keeps a long work to its share of one core: after each slice of work the thread rests until it has used no
// more than its share of the time that passed. What it waited for the disk or the processor counts as work, of one step at most 5 s. A stop ends a rest at
// once, and so does the end of the time that the work may take.
//
// Lifetime: refers to the clock and the token. Threads: the one that works.
#pragma once

#include <cstdint>

#include "agent/thread/stop_token.h"
#include "platform/fwd.h"

namespace korvane {

class Pace {
 public:
  // share: 1 to 100 percent; seconds: what all of it may take.
  Pace(platform::Clock& clock, StopToken& stop, unsigned share, uint64_t seconds);
  // Called between two steps; rests when it is time to. False when the work is to end.
  [[nodiscard]] bool goOn();
  bool stopped() const { return _stop.requested(); }
  bool timeIsUp() const { return _timeIsUp; }

 private:
  platform::Clock& _clock;
  StopToken& _stop;
  const int64_t _share;
  const int64_t _end;
  int64_t _since;  // when the present slice began
  bool _timeIsUp = false;
};

}  // namespace korvane
