// The agent's own log, opened for a test and read back.
#pragma once

#include <string>
#include <vector>

#include "eventlog/event_log_file.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/platform.h"

namespace korvane {

class LoggedEvents {
 public:
  // `files` and the clock of the platform in use must outlive the object.
  explicit LoggedEvents(platform::Files& files, std::string directory = "/log")
      : _files(files), _directory(std::move(directory)) {
    files.makeDirectories(_directory);
    eventlog::Settings settings;
    settings.directory = _directory;
    settings.cataloguePath = platform::joinPath(files, {_directory, "catalogue.txt"});
    settings.tracing = true;
    platform::writeFileAtomically(files, settings.cataloguePath, "10112 AERR text %1\n");
    eventlog::EventLog::open(settings, files, platform::current().clock);
  }
  ~LoggedEvents() { eventlog::EventLog::close(); }
  LoggedEvents(const LoggedEvents&) = delete;
  LoggedEvents& operator=(const LoggedEvents&) = delete;

  // All that was logged so far.
  std::string text() const {
    std::vector<platform::DirectoryEntry> entries;
    _files.list(_directory, entries);
    std::string all;
    for (const auto& entry : entries) {
      if (!entry.name.ends_with(".log")) continue;
      std::string bytes;
      platform::readWholeFile(_files, platform::joinPath(_files, {_directory, entry.name}), 1 << 24,
                              bytes);
      all += bytes;
    }
    return all;
  }
  // The numbers of the events so far, traces left out.
  std::vector<int> all() const {
    std::vector<int> ids;
    const std::string log = text();
    for (size_t at = 0; at < log.size(); at = log.find('\n', at) + 1) {
      size_t field = at;
      for (int i = 0; i < 3; ++i) field = log.find(',', field) + 1;
      if (log.compare(at, 4, "TRAC") != 0) ids.push_back(std::atoi(log.c_str() + field));
    }
    return ids;
  }

 private:
  platform::Files& _files;
  const std::string _directory;
};

}  // namespace korvane
