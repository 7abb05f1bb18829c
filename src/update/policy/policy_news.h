// How often since the agent's start there was something new about its policy: an outcome, or a
// state to report.
//
// A manager on the command channel polls the number to see whether anything is new. The
// utility thread knows by it that the items of another policy may be in force. Threads: any.
#pragma once

#include <atomic>
#include <cstdint>

namespace korvane {

class PolicyNews {
 public:
  void note() { ++_newest; }
  uint64_t number() const { return _newest; }

 private:
  std::atomic<uint64_t> _newest{0};
};

}  // namespace korvane
