#include "ledger/loss.h"

#include <algorithm>

namespace korvane {
namespace {

constexpr std::array<const char*, kLossCauses> kNames = {
    "line-too-long", "line-rejected", "server-dropped", "server-rejected", "disk-limit",
    "log-gone",      "log-replaced",  "log-gap",        "queue-given-up"};

}  // namespace

const char* nameOf(LossCause cause) {
  return kNames[static_cast<size_t>(cause)];
}

std::optional<LossCause> lossCauseNamed(std::string_view name) {
  const auto found = std::find(kNames.begin(), kNames.end(), name);
  if (found == kNames.end()) return {};
  return static_cast<LossCause>(found - kNames.begin());
}

uint64_t linesLost(const LossSums& sums) {
  uint64_t lines = 0;
  for (size_t cause = 0; cause < sums.size(); ++cause)
    if (takesOut(static_cast<LossCause>(cause))) lines += sums[cause].lines;
  return lines;
}

uint64_t uncountedLosses(const LossSums& sums) {
  uint64_t losses = 0;
  for (const LossSum& sum : sums) losses += sum.uncounted;
  return losses;
}

}  // namespace korvane
