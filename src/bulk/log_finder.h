// Finds the logs that bulk transfer is about (docs/bulk-logs.md, "Which logs"), and the kept copies of
// the real-time log.
//
// Lifetime: the parts outlive the object. Threads: one. Errors: none; a folder or a file that cannot be
// read has no logs. An entry of external.log that is not followed is event 10727, once for each value
// of the setting.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "bulk/bulk_manifest.h"
#include "bulk/bulk_parts.h"
#include "platform/files.h"

namespace korvane::bulk {

struct FoundLog {
  Kind kind = Kind::agent;
  std::string path;
  platform::FileInfo info;
};

class LogFinder {
 public:
  static constexpr size_t kMaxEntries = 64;
  static constexpr size_t kMaxOfEntry = 1000;

  explicit LogFinder(const Parts& parts) : _parts(parts) {}

  // Finished logs, and those of external.log.
  std::vector<FoundLog> finished();
  // Kept copies, "<log>.sent": of the real-time log, and of the series that were sent in bulk.
  std::vector<FoundLog> sentCopies();

 private:
  void addOwn(std::vector<FoundLog>& out);
  // Those of the shape of `current` beside it.
  void addSeries(Kind kind, const std::string& current, std::vector<FoundLog>& out);
  void addExternal(std::vector<FoundLog>& out);
  void addEntry(const std::string& entry, std::vector<FoundLog>& out);
  template <class Wanted>
  void addFrom(const std::string& folder, Kind kind, size_t most, std::vector<FoundLog>& out,
               Wanted wanted);
  void refuse(const std::string& entry, const std::string& reason);

  const Parts& _parts;
  STRING _external;                // the setting's value
  std::set<std::string> _refused;  // entries of it, as told
};

}  // namespace korvane::bulk
