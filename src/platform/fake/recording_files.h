// Files that keep a journal of every change and flush, from which a test builds the states that a
// crash of the machine may leave on disk.
//
// The model, the harshest that a POSIX file system may be: what was written to a file is sure only
// after its flush(); that a file was created, replaced, renamed or removed is sure only after
// flushDirectory() of the directory it lies in, and of the changes of a directory that are not sure
// none, all, or the last alone may be kept; directories are sure at once. What the wrapped files
// hold when the object is made is sure. Refers to the MemoryFiles it wraps, which must outlive it
// and the files opened through it, as it must outlive them itself. Paths are taken as they are
// given: full ones, each file by one spelling. Thread-safe.
//
// A check over these states is proved by a flush that is left out: it must fail then.
//
//   RecordingFiles files(memory);
//   ... run the code under test over `files` ...
//   files.forEachCrash([&](const std::string& state, MemoryFiles& disk) { ... start on disk ... });
//   files.leaveOutFlush(3);   // the fourth flush did nothing; now the check above must fail
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/fake/fake_lock.h"
#include "platform/fake/forwarding_files.h"
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
// What became of the changes of a directory that no flush of it had made sure.
enum class NameLoss {
  none,     // all of them reached the disk
  all,      // none did
  lastOnly  // they were reordered: in each directory only the last one did
};
inline constexpr DataLoss kDataLosses[] = {DataLoss::none, DataLoss::all, DataLoss::torn,
                                           DataLoss::zeroed, DataLoss::lastOnly};
inline constexpr NameLoss kNameLosses[] = {NameLoss::none, NameLoss::all, NameLoss::lastOnly};

class RecordingFiles final : public ForwardingFiles {
 public:
  explicit RecordingFiles(MemoryFiles& to);
  ~RecordingFiles() override;

  // The number of entries in the journal, and one of them as a line of text, in which the random part
  // of a new file's name is left out.
  size_t size();
  std::string describe(size_t entry);
  // Puts into the empty `disk` what a crash after the first `entries` entries may leave. Files keep
  // their identities, and the times that they have now.
  void crash(size_t entries, DataLoss data, NameLoss names, MemoryFiles& disk);
  // Calls `check` with every state, each once; `state` names it. The second form has those after the first `entries` entries alone.
  using Check = std::function<void(const std::string& state, MemoryFiles& disk)>;
  void forEachCrash(const Check& check);
  void forEachCrashAfter(size_t entries, const Check& check);

  // The flushes of files and directories, counted from 0 since the object was made.
  size_t flushes();
  std::string describeFlush(size_t flush);
  // One of them, recorded already or still to come, counts as not made; kNoFlush takes that back.
  static constexpr size_t kNoFlush = static_cast<size_t>(-1);
  void leaveOutFlush(size_t flush);

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
  using Seen = std::set<std::map<std::string, std::string>>;
  void forEachCrashAfter(size_t entries, Seen& seen, const Check& check);
  uint64_t identityOf(const std::string& path);
  int64_t timeOf(const std::string& path, uint64_t file) REQUIRES(_mutex);
  void noteLastTime(const std::string& path);

  MemoryFiles& _memory;
  FakeMutex _mutex;
  std::vector<Entry> _journal GUARDED_BY(_mutex);
  size_t _leftOut GUARDED_BY(_mutex) = kNoFlush;
  std::map<uint64_t, int64_t> _lastTimes GUARDED_BY(_mutex);       // of files that lost their names
  std::map<std::string, std::pair<uint64_t, std::string>> _start;  // path: identity, content
  const std::vector<std::string> _startDirectories;
};

}  // namespace korvane::platform
