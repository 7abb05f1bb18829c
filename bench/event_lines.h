// Event lines for the benchmarks: deterministic, about 250 bytes and 22 fields each, with empty and
// quoted fields and, where asked for, runs of repeats.
#pragma once

#include <cstdint>
#include <string>

namespace korvane::bench {

class EventLines {
 public:
  explicit EventLines(unsigned repeatPercent = 20, unsigned quotedPercent = 5)
      : _repeatPercent(repeatPercent), _quotedPercent(quotedPercent) {}
  // The next line, with its line feed.
  const std::string& next();
  // The marker that ends a log.
  std::string endMarker();

 private:
  uint32_t below(uint32_t limit);
  std::string field(const char* word, uint32_t digits);
  void makeEvent();
  std::string header(const std::string& type);

  const unsigned _repeatPercent;
  const unsigned _quotedPercent;
  uint64_t _state = 88172645463325252u;
  uint64_t _sequence = 0;
  uint64_t _timeMs = 1795429530123;
  std::string _type, _rest, _line;
};

// Lines until there are `events` of them, and the end marker.
std::string makeLog(uint64_t events, unsigned repeatPercent = 20, unsigned quotedPercent = 5);

}  // namespace korvane::bench
