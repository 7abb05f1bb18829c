#include "config/ini_files.h"

#include <algorithm>
#include <cerrno>
#include <vector>

#include "agent/thread/stop_token.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/dates.h"
#include "util/ignore_result.h"
#include "util/sha256.h"

namespace korvane {
namespace {

constexpr int kLockAttempts = 10;
constexpr int kLateLockAttempts = 5;
constexpr uint32_t kLateLockPauseMs = 20;
constexpr size_t kDamagedCopies = 8;

// The first bytes of a file, as many as an ini file may have.
std::string readStart(platform::Files& files, const std::string& path) {
  std::unique_ptr<platform::File> file;
  if (files.open(path, platform::OpenMode::read, file) != 0) return {};
  std::string bytes(kMaxIniBytes, '\0');
  size_t got = 0;
  if (file->read(bytes.data(), bytes.size(), got) != 0) got = 0;
  bytes.resize(got);
  return bytes;
}

void removeOldCopies(platform::Files& files, const std::string& directory,
                     const std::string& prefix) {
  std::vector<platform::DirectoryEntry> entries;
  if (files.list(directory, entries) != 0) return;
  std::vector<std::string> copies;
  for (const platform::DirectoryEntry& entry : entries) {
    if (entry.name.starts_with(prefix)) copies.push_back(entry.name);
  }
  std::sort(copies.begin(), copies.end());
  for (size_t i = 0; i + kDamagedCopies < copies.size(); ++i) {
    // What cannot be removed now goes with the next damaged file.
    ignoreResult(files.remove(platform::joinPath(files, {directory, copies[i]})));
  }
}

}  // namespace

bool isSettingsFile(std::string_view name) {
  return name.starts_with("agent.ini") || name.starts_with("fallback.ini");
}

const char* describe(IniFault fault) {
  switch (fault) {
    case IniFault::none:
      return "intact";
    case IniFault::missing:
      return "missing";
    case IniFault::unreadable:
      return "not readable";
    case IniFault::tooLarge:
      return "larger than 4 MiB";
    case IniFault::notText:
      return "not UTF-8 text";
    case IniFault::corrupt:
      break;
  }
  return "inconsistent with its checksum";
}

std::string IniFiles::path(std::string_view name) const {
  return platform::joinPath(_files, {_directory, name});
}

std::string_view IniFiles::lineEnd() const {
  return _files.separator() == '\\' ? "\r\n" : "\n";
}

std::unique_ptr<platform::FileLock> IniFiles::lock(std::string_view tag, int& error,
                                                   uint32_t pauseMs) const {
  error = ENOENT;
  if (!usable()) return nullptr;
  std::unique_ptr<platform::FileLock> held;
  StopToken never;
  int pausesWhileStopping = 0;
  for (int attempt = 1;; ++attempt) {
    error = _files.lock(lockFile(), held);
    if (error == ENOENT && _files.makeDirectories(_directory) == 0) {
      error = _files.lock(lockFile(), held);
    }
    if (error == 0) return held;
    if (error == ELOOP) break;
    const bool stopping = shutdownToken().requested();
    if (stopping ? ++pausesWhileStopping >= kLateLockAttempts : attempt >= kLockAttempts) break;
    if (stopping) {
      never.sleepFor(kLateLockPauseMs);
      continue;
    }
    eventlog::trace(tag, "Waiting to open lock file");
    shutdownToken().sleepFor(pauseMs);
  }
  eventlog::trace(tag, "Could not open lock file.");
  return nullptr;
}

void IniFiles::removeUnfinished() const {
  platform::removeUnfinished(_files, _directory, isSettingsFile);
}

FileStamp IniFiles::stampOf(const std::string& path) const {
  platform::FileInfo info;
  if (_files.info(path, info) != 0 || info.isDirectory) return {};
  return {info.size, info.modifiedNs, info.identity, true};
}

IniFault IniFiles::readIniFileInMem(FileMemory& memory, const std::string& path, IniText& out,
                                    bool mayLackChecksum) const {
  memory = {stampOf(path), {}};
  if (!memory.stamp.exists) return IniFault::missing;
  std::string bytes;
  const int error = platform::readWholeFile(_files, path, kMaxIniBytes, bytes);
  if (error == EFBIG) return IniFault::tooLarge;
  if (error != 0) {
    memory = {};  // so that the next look tries again
    return IniFault::unreadable;
  }
  memory.digest = sha256Hex(bytes);
  if (!parseIniText(bytes, out)) return IniFault::notText;
  return checksumHolds(out, mayLackChecksum) ? IniFault::none : IniFault::corrupt;
}

bool IniFiles::write(std::string_view tag, const std::string& path, const std::string& text,
                     FileMemory& memory) const {
  const int error = platform::writeFileAtomically(_files, path, text);
  if (error != 0) {
    memory = {};
    eventlog::trace(tag, "Could not write %s: error %d", path, error);
    return false;
  }
  memory = {stampOf(path), sha256Hex(text)};
  return true;
}

void IniFiles::keepAside(std::string_view tag, const std::string& path, IniFault fault) const {
  const std::string directory = platform::directoryOf(path);
  const std::string prefix = platform::fileNameOf(path) + ".damaged-";
  const STRING pattern(prefix + "%M-%S-%T");
  const std::string name = expandDatePattern(pattern, _clock.wallMs()).toUtf8();
  const std::string copy = platform::joinPath(_files, {directory, name});
  const int error = platform::writeFileAtomically(_files, copy, readStart(_files, path));
  eventlog::trace(tag, "Damaged %s is kept as %s: error %d", path, copy, error);
  const std::string kept = error == 0 ? copy : "none, error " + std::to_string(error);
  eventlog::event(EventId::settingsFileDamaged, tag, {path, describe(fault), kept});
  removeOldCopies(_files, directory, prefix);
}

}  // namespace korvane
