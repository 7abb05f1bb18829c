// Names of logs: which belong to one series, what a pattern names, and the name of the next one.
// Pure functions; any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::bulk {

// What names of one series have in common: "driver-20261122101530123.log" and "driver.log" are
// "driver.log", "KAVEvent3a7.csv" is "KAVEvent#a#.csv".
std::string shapeOf(std::string_view fileName);
// "driver-7.log" becomes "driver-20261122101530123.log".
std::string nextName(std::string_view fileName, int64_t wallMs);
// '*' and '?' stand for any characters, and for one byte.
bool matches(std::string_view pattern, std::string_view name);
// "<name>.sent" and "<name>.sent.2": the name; empty for any other.
std::string_view nameOfSent(std::string_view fileName);
// "korvane-agent-<17 digits>-<digits>.log"
bool isOwnLog(std::string_view fileName);

// The entries of external.log, blanks dropped; empty ones are left out.
std::vector<std::string> entriesOf(std::string_view setting);
// Why an entry is not followed, as far as its text tells; empty when it can be.
std::string entryFault(std::string_view entry);

}  // namespace korvane::bulk
