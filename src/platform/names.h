// Which names of files are one name where the system, or its file systems, tell no case apart.
//
// Windows: the system's own table of upper case (CompareStringOrdinal), which goes unit by unit.
// POSIX: simple case folding of Unicode, of the version that case_folding.h names.
// Pure; any thread.
#pragma once

#include <string_view>

namespace korvane::platform {

// Below, equal to or above 0; the order has no further meaning.
int compareNames(std::u16string_view one, std::u16string_view other);

// The order of containers in which one name stands once.
struct NameOrder {
  bool operator()(std::u16string_view one, std::u16string_view other) const {
    return compareNames(one, other) < 0;
  }
};

}  // namespace korvane::platform
