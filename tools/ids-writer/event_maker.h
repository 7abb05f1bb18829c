// Makes event lines as the IDS component writes them: comma-separated, 20 to 25 fields, some empty,
// some quoted. The same seed gives the same events. One thread.
#pragma once

#include <cstdint>
#include <random>
#include <string>

namespace korvane::ids_writer {

class EventMaker {
 public:
  // repeatPercent: how many events repeat the one before, except for sequence number and time.
  EventMaker(uint64_t seed, uint32_t repeatPercent);

  // One line in UTF-8, without its end. wallMs: the event's time, milliseconds since 1970 UTC.
  std::string next(uint64_t sequence, int64_t wallMs);
  // A marker line: "MSOF" or "MEOF", with the name of the next file or none.
  static std::string marker(const char* type, int64_t wallMs, const std::string& nextFile = {});

  uint64_t repeated() const { return _repeated; }

 private:
  uint32_t below(uint32_t bound);
  std::string field(size_t position);
  void makeFields();

  std::mt19937_64 _random;
  uint32_t _repeatPercent;
  uint64_t _repeated = 0;
  std::string _type;
  std::string _fields;  // from the fourth on, each with its comma before it
};

}  // namespace korvane::ids_writer
