// Files that keep a journal of every change and flush, from which a test builds the states that a crash of
// the machine may leave on disk.
//
// The model, the harshest that a POSIX file system may be: what was written to a file is sure only after
// its flush(); that a file was created, replaced, renamed or removed is sure only after flushDirectory() of
// the directory it lies in; directories are sure at once. What the wrapped files hold when the object is
// made is sure. Refers to the MemoryFiles it wraps, which must outlive it and the files opened through it,
// as it must outlive them itself. Paths are taken as they are given: full ones, each file by one spelling.
// Thread-safe.
//
//   RecordingFiles files(memory);
//   ... run the code under test over `files` ...
//   files.forEachCrash([&](const std::string& state, MemoryFiles& disk) { ... start again on disk ... });
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "platform/fake/fake_lock.h"
#include "platform/fake/forwarding.h"
#include "platform/fake/memory_files.h"

namespace korvane::platform {

// What became of the writes that no flush had made sure.
enum class DataLoss {
  none,     // all of them reached the disk
  all,      // none did
  torn,     // of the last one only the first half did
  zeroed,   // the file has its new length, but zeros where they should be
  lastOnly  // they were reordered: only the last one did
};
// What became of the names that no flush of a directory had made sure.
enum class NameLoss { none, all };

class RecordingFiles final : public ForwardingFiles {
 public:
  explicit RecordingFiles(MemoryFiles& to);
  ~RecordingFiles() override;

  // The number of entries in the journal, and one of them as a line of text.
  size_t size();
  std::string describe(size_t entry);
  // Puts into the empty `disk` what a crash after the first `entries` entries may leave.
  void crash(size_t entries, DataLoss data, NameLoss names, MemoryFiles& disk);
  // Calls `check` with every state that differs from the one before; `state` names it. The disks' times come
  // from a clock of their own.
  void forEachCrash(const std::function<void(const std::string& state, MemoryFiles& disk)>& check);

  int open(const std::string& path, OpenMode mode, std::unique_ptr<File>& out) override;
  int lock(const std::string& path, std::unique_ptr<FileLock>& out) override;
  int replace(const std::string& from, const std::string& to) override;
  int rename(const std::string& from, const std::string& to) override;
  int remove(const std::string& path) override;
  int makeDirectories(const std::string& path) override;
  int flushDirectory(const std::string& directory) override;

  struct Entry;
  // For the files opened through this.
  void record(Entry entry);

 private:
  uint64_t identityOf(const std::string& path);

  MemoryFiles& _memory;
  FakeMutex _mutex;
  std::vector<Entry> _journal GUARDED_BY(_mutex);
  std::map<std::string, std::pair<uint64_t, std::string>> _start;  // path: identity, content
  const std::vector<std::string> _startDirectories;
};

}  // namespace korvane::platform
