// Records written before the log's settings are known: buffered in order, within limits, until the
// log is opened. Used by one thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "eventlog/event_log_file.h"

namespace korvane::eventlog {

// When and where a record came about.
struct Origin {
  int64_t wallMs = 0;
  uint64_t processId = 0;
  uint64_t threadId = 0;
};

struct HeldRecord {
  int id = 0;  // 0: a trace line
  std::string source;
  std::string text;  // of a trace line
  std::vector<std::string> insertions;
  Origin origin;
};

class HeldRecords {
 public:
  // False when there is no room for it.
  bool keep(HeldRecord&& record) {
    size_t bytes = record.source.size() + record.text.size();
    for (const std::string& insertion : record.insertions) bytes += insertion.size();
    if (_records.size() == EventLog::kMaxHeldRecords || _bytes + bytes > EventLog::kMaxHeldBytes)
      return false;
    _bytes += bytes;
    _records.push_back(std::move(record));
    return true;
  }
  // Gives what is held, and holds nothing then.
  std::vector<HeldRecord> take() {
    _bytes = 0;
    return std::exchange(_records, {});
  }

 private:
  std::vector<HeldRecord> _records;
  size_t _bytes = 0;
};

}  // namespace korvane::eventlog
