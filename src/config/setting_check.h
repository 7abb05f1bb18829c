// Whether a value can be one of a setting, and if not, why: for programs that tell somebody. Pure.
//
//   settingFault("polling.interval", "soon")  // "is no number from 0 to 4294967295"
#pragma once

#include <string>

#include "util/string.h"

namespace korvane {

// Empty for a value that the store takes and the agent can use; a key that is not in the table takes any.
std::string settingFault(const STRING& key, const STRING& value);

}  // namespace korvane
