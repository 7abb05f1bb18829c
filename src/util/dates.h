// Date texts. Times are milliseconds since 1970-01-01 00:00:00 UTC (platform::Clock::wallMs gives
// them); all texts are in UTC, so that they sort and never jump with daylight saving.
#pragma once

#include <cstdint>
#include <string>

#include "util/string.h"

namespace korvane {

// "2026-11-21 10:15:30.123": the form that event lines carry; always 23 characters.
std::string formatTimestamp(int64_t wallMs);

// "2026-11-21T10:15:30.123Z": the form of answers to programs (ISO 8601); always 24 characters.
std::string formatIso8601(int64_t wallMs);

// Expands %M, %S and %T in a file-name pattern so that a new name results each time: %M becomes the
// date and minute ("202611211015"), %S the second and millisecond ("30123"), %T a number that grows
// with every expansion of the process. Any other character stays as it is.
STRING expandDatePattern(const STRING& pattern, int64_t wallMs);

}  // namespace korvane
