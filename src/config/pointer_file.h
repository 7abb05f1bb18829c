// The pointer file of a log, as far as more than one room reads it; docs/file-formats.md has the
// rest.
#pragma once

#include <cstddef>

namespace korvane {

inline constexpr size_t kPointerFileBytes = 4365;
// The name of the log that is being read: UTF-16LE with a NUL behind it.
inline constexpr size_t kPointerNameAt = 1;
inline constexpr size_t kPointerNameUnits = 512;

}  // namespace korvane
