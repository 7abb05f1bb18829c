// Which names of archive entries may become paths below a directory. One rule for every system: a
// name that either could not store, or would interpret differently, is refused on both.
//
// Thread-safe; no state.
#pragma once

#include <string>
#include <string_view>

#include "archive/refusal.h"

namespace korvane::archive {

inline constexpr size_t kLongestName = 1000;  // bytes of a whole name
inline constexpr size_t kLongestPart = 240;   // bytes between two slashes
inline constexpr size_t kDeepestPath = 32;    // parts

// Fault::none, or why the name is refused, with the reason in words. A name that ends in a
// slash is a directory's. Parts are UTF-8, at least one character, none of < > : " | ? * or a
// control character in them, no blank or dot at their end, and not the name of a device
// ("NUL", "com1.txt").
[[nodiscard]] Fault checkEntryName(std::string_view name, std::string& reason);

}  // namespace korvane::archive
