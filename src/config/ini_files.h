// "agent.ini", "fallback.ini" and "lockFile" in the installation directory.
//
// Writers and readers of every process take the lock file first. Files are replaced atomically, so
// that a reader without it never sees half a file either. All operations may be called by any
// thread, but the holder of the lock file is one at a time. Failures are traced under the tag that
// the caller gives.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "config/ini_text.h"
#include "platform/fwd.h"

namespace korvane {

// What tells one version of a file from another without reading it; all zero for a missing file.
struct FileStamp {
  uint64_t size = 0;
  int64_t modifiedNs = 0;
  uint64_t identity = 0;
  bool exists = false;
  friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

// A file as it was last seen: which version, and what it held.
struct FileMemory {
  FileStamp stamp;
  std::string digest;  // SHA-256 of its bytes; empty when it was never read or written
};

enum class IniFault { none, missing, unreadable, tooLarge, notText, corrupt };
// "inconsistent with its checksum"
const char* describe(IniFault fault);

// agent.ini, fallback.ini, or a copy of either that is kept beside it: written with the lock file held.
bool isSettingsFile(std::string_view name);

class IniFiles {
 public:
  // `directory` empty: there are no files, nothing is read and every write fails.
  IniFiles(platform::Files& files, platform::Clock& clock, std::string directory)
      : _files(files), _clock(clock), _directory(std::move(directory)) {}

  bool usable() const { return !_directory.empty(); }
  std::string agentIni() const { return path("agent.ini"); }
  std::string fallbackIni() const { return path("fallback.ini"); }
  std::string lockFile() const { return path("lockFile"); }
  // CR LF where the separator is a backslash, LF elsewhere.
  std::string_view lineEnd() const;

  // Waits for the lock file: ten attempts, that many milliseconds apart. Once the process is
  // being stopped it only tries for a tenth of a second, and a link in its place is no lock file
  // (ELOOP at once). Null, with the last attempt's error, when it is not available.
  std::unique_ptr<platform::FileLock> lock(std::string_view tag, int& error,
                                           uint32_t pauseMs = 1000) const;

  // Removes what writes that a crash cut off have left; with the lock file held.
  void removeUnfinished() const;

  FileStamp stampOf(const std::string& path) const;
  // Reads a file; `memory` becomes what was seen, also for a damaged file.
  [[nodiscard]] IniFault readIniFileInMem(FileMemory& memory, const std::string& path, IniText& out,
                                          bool mayLackChecksum) const;
  // Replaces a file and notes what it holds now in `memory`.
  [[nodiscard]] bool write(std::string_view tag, const std::string& path, const std::string& text,
                           FileMemory& memory) const;
  // Copies a damaged file to "<name>.damaged-<date>" beside it; the newest eight copies are kept.
  // Event 10520 tells what is wrong with it.
  void keepAside(std::string_view tag, const std::string& path, IniFault fault) const;

 private:
  std::string path(std::string_view name) const;

  platform::Files& _files;
  platform::Clock& _clock;
  std::string _directory;
};

}  // namespace korvane
