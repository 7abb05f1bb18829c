#include "logs/spent_log.h"

#include <cerrno>
#include <string>

#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"

namespace korvane {
namespace {

constexpr char kSpentTag[] = "LogProcessor::PostRealTimeProcessing";
constexpr uint32_t kRetryPauseMs = 500;
// Names tried for a file that cannot be removed.
constexpr int kMaxNames = 1000;

bool remove(platform::Files& files, const STRING& file, const char* failureText) {
  const int error = files.remove(file.toUtf8());
  if (error == 0 || error == ENOENT) return true;
  eventlog::event(EventId::logForwardingError, "LogProcessor",
                  {failureText + file.toUtf8() + ". Error code : " + std::to_string(error)});
  return false;
}

bool rename(platform::Files& files, const STRING& file) {
  eventlog::trace(kSpentTag, "Renaming File %s", file);
  const std::string from = file.toUtf8();
  std::string to = from + ".sent";
  for (int number = 2; number < kMaxNames; ++number) {
    const int error = files.rename(from, to);
    if (error != EEXIST) return error == 0;
    to = from + ".sent." + std::to_string(number);
  }
  return false;
}

}  // namespace

bool removeSpentLog(platform::Files& files, const STRING& file, StopToken& stop) {
  eventlog::trace(kSpentTag, "Deleting Real Time File %s", file);
  if (remove(files, file, "Error removing file ")) return true;
  stop.sleepFor(kRetryPauseMs);
  eventlog::trace(kSpentTag, "Deleting Real Time File %s (2nd Try)", file);
  return remove(files, file, ": (2nd Try) Error removing file ") || rename(files, file);
}

bool keepSpentLog(platform::Files& files, const STRING& file) {
  return !platform::fileExists(files, file.toUtf8()) || rename(files, file);
}

}  // namespace korvane
