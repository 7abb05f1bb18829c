#include "cloud/recent_logs.h"

#include "cloud/agent_status.h"
#include "platform/clock.h"

namespace korvane {

const JsonTree& RecentLogs::get(const LocalParts& parts) {
  const int64_t now = parts.clock.monotonicMs();
  if (_takenAt && now - *_takenAt <= kKeptMs) return _logs;
  _logs = logsTree(parts);
  _takenAt = parts.clock.monotonicMs();
  return _logs;
}

}  // namespace korvane
