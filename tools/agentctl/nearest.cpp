#include "agentctl/nearest.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace korvane::agentctl {
namespace {

constexpr size_t kFarthest = 2;

size_t distance(std::string_view from, std::string_view to) {
  std::vector<size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < from.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i + 1);
    for (size_t j = 0; j < to.size(); ++j) {
      const size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string nearest(std::string_view word, const std::vector<std::string>& names) {
  std::string best;
  size_t least = kFarthest + 1;
  for (const std::string& name : names) {
    const size_t far = distance(word, name);
    if (far < least && far < name.size()) {
      least = far;
      best = name;
    }
  }
  return best;
}

}  // namespace korvane::agentctl
