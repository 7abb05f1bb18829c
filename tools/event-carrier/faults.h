// A carrier's faults, notice by notice: first the requested ones, in order, then random ones in a
// given percentage of notices. The same seed gives the same faults. One thread.
#pragma once

#include <cstdint>
#include <deque>
#include <random>
#include <string>
#include <vector>

namespace korvane::event_carrier {

enum class Fault {
  none,
  throttle,            // answers VEXCX_REQUEST_THROTTLED
  backOff,             // answers VEXCX_REQUEST_THROTTLED_BACKEDOFF
  refuse,              // answers with the code 500
  loseSent,            // keeps the sent signal to itself
  loseAck,             // carries the events on and keeps the acknowledgement to itself
  silent,              // says nothing at all
  mixUpSent,           // names another notice in the sent signal
  mixUpAck,            // carries the events on and acknowledges another notice
  ackTwice,            // acknowledges twice
  garbage,             // answers with what is not JSON
  disconnectAttached,  // goes once it is attached
  disconnectReading,   // goes in the middle of a notice
  disconnectNotice,    // goes when it has read the notice
  disconnectSent,      // goes after the sent signal
  disconnectAck,       // carries the events on, acknowledges them and goes
  neverRead,           // stays, and reads nothing any more
};

// Every name of a fault, in the order above, without "none".
const std::vector<std::string>& faultNames();
const char* nameOf(Fault fault);

class Faults {
 public:
  // script: "NAME" or "NAME*TIMES" each; throws std::invalid_argument that says which one is none.
  Faults(const std::vector<std::string>& script, uint32_t randomPercent, uint64_t seed);

  // Of the next notice.
  Fault next();
  // True, once, when the next notice's fault is this one.
  bool consumeIf(Fault fault);

 private:
  void look();

  std::deque<Fault> _script;
  const uint32_t _percent;
  std::mt19937_64 _random;
};

}  // namespace korvane::event_carrier
