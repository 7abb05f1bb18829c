// What an oracle has found wrong, with the seed and the simulated time, and the numbers that the
// oracle draws. Plain values: no thread, no clock of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/fake/seeded_random.h"

namespace korvane::simulation {

using Random = platform::SeededRandom;

class Findings {
 public:
  // `nowMs` is the simulated time since the episode began.
  Findings(uint64_t seed, std::function<int64_t()> nowMs) : _seed(seed), _now(std::move(nowMs)) {}

  // `what` begins with the invariant's name and a colon: "wire: ...", "events: ...".
  void add(const std::string& what) {
    if (++_count > kKept) return;
    const int64_t now = _now();
    _texts.push_back("seed " + std::to_string(_seed) + ", at " + std::to_string(now / 1000) + "." +
                     std::to_string(1000 + now % 1000).substr(1) + " s: " + what);
  }
  bool empty() const { return _count == 0; }
  size_t count() const { return _count; }
  const std::vector<std::string>& texts() const { return _texts; }  // the first of them

 private:
  static constexpr size_t kKept = 20;
  const uint64_t _seed;
  const std::function<int64_t()> _now;
  size_t _count = 0;
  std::vector<std::string> _texts;
};

}  // namespace korvane::simulation
