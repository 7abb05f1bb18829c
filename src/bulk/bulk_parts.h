// What bulk log transfer uses of its agent. All of it outlives what is made with it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/fwd.h"
#include "util/string.h"

namespace korvane {
class LogSettings;
}  // namespace korvane

namespace korvane::bulk {

// Bytes of a log that nobody will ever have.
struct Loss {
  enum class Cause { diskLimit, logGone, logReplaced };

  std::string log;  // path
  Cause cause = Cause::logGone;
  uint64_t from = 0;
  uint64_t to = 0;
  int64_t modifiedMs = 0;  // of the log; milliseconds since 1970-01-01 UTC
  uint64_t identity = 0;   // of the file
};

// What came of offering a bundle.
struct Offer {
  bool accepted = false;
  bool stopped = false;
  std::string reason;  // why not
};

// The driver's two logs.
struct DriverLog {
  std::function<bool(STRING& path)> current;  // false: there is none, or no driver
  std::function<bool(const STRING& path, std::string& reason)> roll;
};

struct Parts {
  platform::Files& files;
  platform::Clock& clock;
  platform::Rights& rights;
  LogSettings& settings;
  std::string home;  // InstallRoot/IPS
  // Empty: the agent has no server, and nothing is sent.
  std::function<Offer(const std::string& path)> send;
  std::function<std::string()> ownLog;  // the path that the own log is written to
  DriverLog driver;
  DriverLog profile;
  std::function<void(const Loss&)> lost;
};

}  // namespace korvane::bulk
