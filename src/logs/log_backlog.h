// The backlog of the forwarded logs, derived from the read pointers, the logs and the IDS
// component's settings: from any thread or process, whether or not an agent is running.
//
// A log that ends with a mark naming the next log, and the logs that follow in this way, count
// together; so do the logs that the agent knows to be next, and the one that the type is written to
// at present, when it is another one.
// Bounds: at most kMaxScanned bytes are read for one log type to count its records, and at
// most kMaxLogs logs are followed.
// Errors: none. What is missing or cannot be read counts as nothing. Nothing is written.
//
//   for (const LogBacklog& log : logBacklogs(files, clock, settings.logs)) show(log);
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "config/log_type.h"
#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {

class LogSettings;

struct LogBacklog {
  LogType type = HIDS_RT_LOG;
  STRING log;          // the log being read; empty while no log is known
  STRING pointerFile;  // there or not
  int64_t offset = 0;  // of the first event in `log` that has not been delivered
  uint64_t bytes = 0;  // from there to the end of the last log, an unfinished line included
  // Whole lines in them except for start and end marks. An event is one line.
  uint64_t records = 0;
  bool recordsExact =
      true;  // false: there are more bytes than are read; there are at least `records`
};

inline constexpr uint64_t kMaxScanned = 16u << 20;
inline constexpr size_t kMaxLogs = 64;

// One entry for each log type that is forwarded.
std::vector<LogBacklog> logBacklogs(platform::Files& files, platform::Clock& clock,
                                    const LogSettings& settings);

}  // namespace korvane
