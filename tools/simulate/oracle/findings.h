// What an oracle has found wrong, with the seed and the simulated time, and the numbers that the
// oracle draws. Plain values: no thread, no clock of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace korvane::simulation {

// Numbers drawn from a seed, the same on every system.
class Random {
 public:
  explicit Random(uint64_t seed) : _state(seed) {}
  uint64_t next() {
    uint64_t x = _state += 0x9E3779B97F4A7C15u;
    x = (x ^ x >> 30) * 0xBF58476D1CE4E5B9u;
    x = (x ^ x >> 27) * 0x94D049BB133111EBu;
    return x ^ x >> 31;
  }
  int below(int n) { return static_cast<int>(next() % static_cast<uint64_t>(n)); }
  int between(int least, int most) { return least + below(most - least + 1); }
  bool chance(int percent) { return below(100) < percent; }
  int oneOf(std::initializer_list<int> of) {
    return of.begin()[below(static_cast<int>(of.size()))];
  }

 private:
  uint64_t _state;
};

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
