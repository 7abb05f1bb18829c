// Keeps account of the logs from look to look: which file is which log, what of it was sent, whether
// it still changes, and what was lost (docs/bulk-logs.md).
//
// The records are those of the state; whoever owns the book writes it. Lifetime: the parts outlive
// the object. Threads: one. Errors: none; a log that cannot be looked at is left alone.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "bulk/bulk_state.h"
#include "bulk/log_finder.h"

namespace korvane::bulk {

class LogBook {
 public:
  static constexpr int64_t kSettleMs = 10'000;

  explicit LogBook(const Parts& parts) : _parts(parts) {}

  // Brings the records up to what was found; true when they are others now. What is lost for ever is
  // told to `lost`.
  [[nodiscard]] bool update(std::vector<FoundLog> found, std::vector<LogRecord>& records,
                            const std::function<void(const LogRecord&, Loss::Cause)>& lost);

  // Of the last update(): found then; did not change for kSettleMs.
  bool isThere(const LogRecord& log) const { return _there.contains(log.id); }
  bool isSettled(const LogRecord& log) const;
  // Some log may be settled kSettleMs after the last update().
  bool isSettling() const { return _settling; }
  // Whether the file is still the one that the record describes.
  bool isUnchanged(const LogRecord& log) const;

 private:
  struct Sight {
    uint64_t size = 0;
    int64_t modifiedNs = 0;
    int64_t sinceMs = 0;  // monotonic
  };

  // False when the file is not the log, or cannot be told.
  bool isSame(const LogRecord& log, const FoundLog& file) const;
  bool readHead(const std::string& path, uint32_t bytes, std::string& out) const;
  bool fillHead(LogRecord& log) const;
  bool follow(LogRecord& log, const FoundLog& file) const;
  // What is to be told of a log that no file was found for; none: it is still there.
  bool isGone(const LogRecord& log, Loss::Cause& cause) const;
  void note(const LogRecord& log);
  // A log whose record is dropped must not come back after a power cut: it would be sent again.
  bool isGoneForGood(const LogRecord& log, std::set<std::string>& flushed) const;

  const Parts& _parts;
  std::set<std::string> _there;
  std::map<std::string, Sight> _sights;
  bool _settling = false;
};

}  // namespace korvane::bulk
