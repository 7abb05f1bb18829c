// Whether a value is valid for a setting, and if not, why; and which names are not settings. Pure.
//
//   settingFault("polling.interval", "soon")  // "is not a number from 0 to 4294967295"
#pragma once

#include <string>

#include "util/string.h"

namespace korvane {

inline constexpr int kLastPort = 65535;

// Empty for a value that the store takes and the agent can use; a key that is not in the
// table takes any.
std::string settingFault(const STRING& key, const STRING& value);
// Whether a key tells of the policy in force: it changes with the policy alone and is no
// setting that anybody sends.
bool comesWithPolicy(const STRING& key);

// Why nobody but the administrator of the machine sets it, in its file: it decides whose content is
// trusted. Empty for any other key.
std::string trustFault(const STRING& key);

}  // namespace korvane
