// What waits in the forwarded logs, as the local channel tells it: kept for some seconds, so that clients
// that ask again and again have the logs read once. Used by one thread.
#pragma once

#include <cstdint>
#include <optional>

#include "cloud/local_service.h"
#include "rpc/json_text.h"

namespace korvane {

class RecentLogs {
 public:
  static constexpr int64_t kKeptMs = 5000;

  const JsonTree& get(const LocalParts& parts);

 private:
  JsonTree _logs;
  std::optional<int64_t> _takenAt;  // monotonic
};

}  // namespace korvane
