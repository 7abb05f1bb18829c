// Reads the agent's own log: a series of files that begin one after another and go away from the
// oldest on. docs/file-formats.md has their names and records.
//
// Lifetime: `files` outlives the objects. Threads: one. Errors: what cannot be read counts
// as nothing.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "eventlog/catalogue.h"
#include "platform/fwd.h"

namespace korvane::agentctl {

struct LogRecord {
  uint64_t sequence = 0;
  std::string type;  // AINF, AWRN, AERR or TRAC
  std::string at;    // "2026-11-21 10:15:30.123", UTC
  int number = 0;    // 0: a trace line
  std::string source;
  std::string process;
  std::string thread;
  std::string text;
  std::vector<std::string> insertions;

  bool isTrace() const { return type == "TRAC"; }
  bool isComplaint() const { return type == "AWRN" || type == "AERR"; }
};

// False for a line that is not a whole record.
bool parseRecord(std::string_view line, LogRecord& out);

// The full paths of the series in a directory, the oldest first.
std::vector<std::string> ownLogFiles(platform::Files& files, const std::string& directory);

using RecordFilter = std::function<bool(const LogRecord&)>;

// The newest `count` records that `wanted` takes, the oldest of them first.
std::vector<LogRecord> newestRecords(platform::Files& files, const std::string& directory,
                                     size_t count, const RecordFilter& wanted);

// Goes on where the log ends, through every new file of the series.
class LogFollower {
 public:
  // Begins behind what is there now.
  LogFollower(platform::Files& files, std::string directory);
  // The records that have come since.
  std::vector<LogRecord> next();

 private:
  // What has been added to the present file; whole lines, or all of it when no more can come.
  void take(bool ended, std::vector<LogRecord>& out);
  std::string successor() const;

  platform::Files& _files;
  const std::string _directory;
  std::string _path;
  uint64_t _offset = 0;
};

// The text of the catalogue with the record's insertions, or the record's own.
std::string textOf(const LogRecord& record, const eventlog::Catalogue& catalogue);

}  // namespace korvane::agentctl
