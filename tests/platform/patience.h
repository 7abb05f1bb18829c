// How long the tests of the seam wait for what must happen: no wait that is in order takes
// this long.
#pragma once

#include <cstdint>

namespace korvane::platform {

inline constexpr uint32_t kLongMs = 30000;

}  // namespace korvane::platform
