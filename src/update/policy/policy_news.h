// How often since the agent's start there was something new about its policy: an outcome, or a
// state to report.
//
// A manager on the command channel polls the number to see whether anything is new. The
// utility thread knows by it that the items of another policy may be in force. Threads: any.
#pragma once

#include <cstdint>

namespace korvane {

class PolicyNews {
 public:
  static void note();
  static uint64_t number();
};

}  // namespace korvane
