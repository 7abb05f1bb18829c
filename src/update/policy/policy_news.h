// How often since the agent's start there was something new about its policy: an outcome, or a state to be told.
//
// Who manages the agent over its command channel asks for the number and knows by it whether to look again. The
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
