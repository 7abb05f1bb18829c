// The system's own devices need a driver in the kernel, which these tests do not have; win_test.cpp puts
// their overlapped requests to a named pipe instead.
#pragma once

#include <gtest/gtest.h>

#include "tests/platform/device_codes.h"

namespace korvane::platform {

struct NativeDeviceWorlds {
  template <class Fake>
  using With = testing::Types<Fake>;
};

}  // namespace korvane::platform
