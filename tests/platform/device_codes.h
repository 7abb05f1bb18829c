// The control codes by which the device tests ask a driver for a certain behaviour.
#pragma once

#include <cstdint>

namespace korvane::platform {

enum Code : uint32_t {
  kEcho = 1,      // finishes at once with the input as its output
  kRefuseAtOnce,  // fails at once with 87
  kLateEcho,      // was pending, finishes with the input
  kLateError,     // was pending, ends with 31
  kLateMoreData,  // was pending, fills the buffer and ends with 234
  kNever,
};

}  // namespace korvane::platform
