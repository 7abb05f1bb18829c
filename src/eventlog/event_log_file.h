// Opening, settings and state of the agent's own log (event_log.h writes it).
//
// The log is a series of files "<base name>-<date and time>-<number>.log" in one directory. Opening
// goes on with the newest of them, and its sequence numbers go on from the last whole record there.
// The names are dated, so a new file never takes a used name; agentLogFileChanged of the settings
// store notices a new file by currentFile().
//
// A new file begins when the present one has reached what `rolloverCause` and
// `rolloverValue` say, and at the latest at half of `totalBytes`. Before that, the oldest
// files are deleted until the files kept and one more full file stay within totalBytes, and
// are at most 100. Files of other names are never touched.
//
// Lifetime: open() and close() count; the first open() opens the log with its settings, the last
// close() closes it. `files` and `clock` must live until then. What comes before the settings are
// known is held when hold() was called: open() writes it, in its order and with its own times,
// before anything else. At most kMaxHeldRecords, with kMaxHeldBytes of text, are held; what comes
// behind them is lost and counted.
// Threads: any, at any time.
// Errors: nothing throws. A record that cannot be written is lost and counted; the file is reopened
// at most once a second, and event 10501 tells how many were lost once writing works again. A
// missing or damaged catalogue is event 10500; events then carry their insertions alone.
#pragma once

#include <cstdint>
#include <string>

#include "platform/fwd.h"

namespace korvane::eventlog {

// What `log.rollover.cause` means, and the unit of `log.rollover.value`.
enum class RolloverCause {
  size = 0,   // MiB
  age = 1,    // hours
  lines = 2,  // thousands of lines
};

struct Settings {
  std::string directory;  // made when missing
  std::string baseName = "korvane-agent";
  std::string cataloguePath;
  RolloverCause rolloverCause = RolloverCause::size;
  int64_t rolloverValue = 50;                 // below 1: 50
  uint64_t totalBytes = uint64_t{200} << 20;  // of all files; at least kMinTotalBytes
  bool tracing = false;

  static constexpr uint64_t kMinTotalBytes = 256 * 1024;
};

class EventLog {
 public:
  static constexpr size_t kMaxHeldRecords = 1000;
  static constexpr size_t kMaxHeldBytes = 256 * 1024;

  // Holds records from now until open() or close(); trace lines too, which open() writes when its
  // settings have tracing on. Does nothing while the log is open.
  static void hold(platform::Clock& clock);
  static void open(const Settings& settings, platform::Files& files, platform::Clock& clock);
  // Takes other settings; the catalogue is read again when its path changed. Does nothing
  // while closed.
  static void reconfigure(const Settings& settings);
  static void close();

  // Records that could not be written since the process began.
  static uint64_t lost();
  // How often a full file was followed by a new one since the log was opened.
  static uint64_t rolledCount();
};

// Settings' cause and value from the settings store's number and text; what makes no sense
// is the default.
RolloverCause rolloverCause(int number);
int64_t rolloverValue(const std::string& text);

}  // namespace korvane::eventlog
