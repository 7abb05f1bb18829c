// Suggestions for mistyped words. Pure functions.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace korvane::agentctl {

// The one of `names` that takes the fewest letters to be changed, added or left out, at
// most two; empty when none is that near.
std::string nearest(std::string_view word, const std::vector<std::string>& names);

}  // namespace korvane::agentctl
