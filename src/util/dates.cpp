#include "util/dates.h"

#include <atomic>
#include <chrono>
#include <cstdio>

namespace korvane {
namespace {

struct Civil {
  int year;
  unsigned month, day, hour, minute, second, millisecond;
};

Civil civilFromMs(int64_t wallMs) {
  using namespace std::chrono;
  const sys_time<milliseconds> time{milliseconds(wallMs)};
  const auto midnight = floor<days>(time);
  const year_month_day date(midnight);
  const auto ms = static_cast<unsigned>((time - midnight).count());
  return {static_cast<int>(date.year()),
          static_cast<unsigned>(date.month()),
          static_cast<unsigned>(date.day()),
          ms / 3600000,
          ms / 60000 % 60,
          ms / 1000 % 60,
          ms % 1000};
}

}  // namespace

std::string formatTimestamp(int64_t wallMs) {
  const Civil t = civilFromMs(wallMs);
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02u %02u:%02u:%02u.%03u", t.year, t.month, t.day,
                t.hour, t.minute, t.second, t.millisecond);
  return text;
}

std::string formatIso8601(int64_t wallMs) {
  std::string text = formatTimestamp(wallMs) + "Z";
  text[text.find(' ')] = 'T';
  return text;
}

STRING expandDatePattern(const STRING& pattern, int64_t wallMs) {
  static std::atomic<uint32_t> expansions{0};
  const Civil t = civilFromMs(wallMs);
  const std::string from = pattern.toUtf8();
  std::string out;
  char text[64];
  for (size_t i = 0; i < from.size(); ++i) {
    const char token = from[i] == '%' && i + 1 < from.size() ? from[i + 1] : '\0';
    if (token == 'M')
      std::snprintf(text, sizeof text, "%04d%02u%02u%02u%02u", t.year, t.month, t.day, t.hour,
                    t.minute);
    else if (token == 'S')
      std::snprintf(text, sizeof text, "%02u%03u", t.second, t.millisecond);
    else if (token == 'T')
      std::snprintf(text, sizeof text, "%u", ++expansions);
    else {
      out += from[i];
      continue;
    }
    out += text;
    ++i;
  }
  return out;
}

}  // namespace korvane
