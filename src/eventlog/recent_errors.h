// The latest warnings and errors of the agent's own log, kept in memory as they are written, so
// that queries read no file. At most kRecentErrors since the log was opened, the newest first; a
// text is cut at 512 bytes. Any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace korvane::eventlog {

inline constexpr size_t kRecentErrors = 10;

struct RecentError {
  int64_t wallMs = 0;
  int id = 0;
  std::string type;  // AWRN or AERR
  std::string source;
  std::string text;
};

std::vector<RecentError> recentErrors();

}  // namespace korvane::eventlog
