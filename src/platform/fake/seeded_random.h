// Numbers drawn from a seed, the same on every system: SplitMix64 by Sebastiano Vigna. A plain
// value, for one thread at a time.
#pragma once

#include <cstdint>
#include <initializer_list>

namespace korvane::platform {

class SeededRandom {
 public:
  explicit SeededRandom(uint64_t seed) : _state(seed) {}
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

}  // namespace korvane::platform
