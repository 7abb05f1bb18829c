// Files in memory, with the semantics of a POSIX file system: an open file lives on after its name
// is removed or replaced, "/" separates, modification times come from the clock handed in.
//
// Lifetime: open files and locks may outlive the object. Thread-safe, except for one File used by
// one thread.
//
//   MemoryFiles files(clock);
//   files.put("/opt/agent/agent.ini", "[Agent]\n");   // with the directories above it
//   EXPECT_EQ(files.content("/opt/agent/agent.ini"), ...);
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "platform/clock.h"
#include "platform/fake/fake_lock.h"
#include "platform/files.h"

namespace korvane::platform {

// What open files of a MemoryFiles share with it.
struct MemoryDisk;

class MemoryFiles final : public Files {
 public:
  explicit MemoryFiles(Clock& clock);
  ~MemoryFiles() override;

  char separator() const override { return '/'; }
  // The same ones in the same order on every new disk.
  std::string freshName() override;
  int open(const std::string& path, OpenMode mode, std::unique_ptr<File>& out) override;
  int lock(const std::string& path, std::unique_ptr<FileLock>& out) override;
  int info(const std::string& path, FileInfo& out) override;
  // There are no links.
  int resolve(const std::string& path, std::string& out) override;
  int freeBytes(const std::string& directory, uint64_t& out) override;
  int totalBytes(const std::string& directory, uint64_t& out) override;
  int replace(const std::string& from, const std::string& to) override;
  int rename(const std::string& from, const std::string& to) override;
  int remove(const std::string& path) override;
  int makeDirectories(const std::string& path) override;
  int list(const std::string& directory, std::vector<DirectoryEntry>& out) override;
  int flushDirectory(const std::string& directory) override;

  // What freeBytes() says from now on; writes do not take of it.
  void setFreeBytes(uint64_t bytes) { _freeBytes = bytes; }
  static constexpr uint64_t kTotalBytes = uint64_t{1} << 41;
  // Puts a whole file, with the directories above it.
  void put(const std::string& path, std::string_view bytes);
  // Makes a file that is there the one of this identity and time, as on a disk that was copied.
  void identify(const std::string& path, uint64_t identity, int64_t modifiedNs);
  // The bytes of a file; empty when there is none.
  std::string content(const std::string& path);
  // The paths of all files, sorted.
  std::vector<std::string> paths();
  // The paths of all directories but the root, sorted.
  std::vector<std::string> directories();

 private:
  const std::shared_ptr<MemoryDisk> _disk;
  std::atomic<uint64_t> _freeBytes{uint64_t{1} << 40};
};

}  // namespace korvane::platform
