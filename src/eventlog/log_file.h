// The series of files that the log is written to (event_log_file.h says how files begin and end).
// Used by one thread at a time. Errors: errno values; a failed file is reopened at most once a
// second.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "eventlog/event_log_file.h"
#include "platform/files.h"

namespace korvane::eventlog {

class LogFile {
 public:
  LogFile(platform::Files& files, platform::Clock& clock) : _files(files), _clock(clock) {}

  void configure(const Settings& settings);
  // Goes on with the newest file there is, or begins one. Gives the sequence number of its
  // last record.
  uint64_t open();
  // Writes a line whole, in one write.
  [[nodiscard]] int write(std::string_view line);
  const std::string& path() const { return _path; }
  uint64_t rolled() const { return _rolled; }

 private:
  // A file of the series, as its name tells.
  struct Kept {
    std::string name;
    std::string stamp;  // "20261121101530123"
    uint64_t number = 0;
    uint64_t size = 0;
  };

  bool parseName(const std::string& name, Kept& out) const;
  std::vector<Kept> oldestFirst();
  [[nodiscard]] int begin();
  [[nodiscard]] int reopen();
  [[nodiscard]] int append(std::string_view line);
  // The last bytes of the open file; notes whether its last line is torn.
  std::string readTail();
  uint64_t countLines();
  std::string unusedPath();
  bool isFull(size_t nextLine);
  void makeRoom();
  uint64_t fileLimit() const;
  std::string fullPath(const std::string& name) const;

  platform::Files& _files;
  platform::Clock& _clock;
  Settings _settings;
  std::string _path;
  std::unique_ptr<platform::File> _file;
  uint64_t _size = 0;
  uint64_t _lines = 0;
  int64_t _begunMs = 0;  // monotonic
  bool _torn = false;    // the last line has no end
  uint64_t _rolled = 0;
  int _lastError = 0;
  int64_t _retryMs = 0;  // monotonic; no attempt before
};

}  // namespace korvane::eventlog
