// Files of which a test fails single operations. Refers to the Files it wraps, which must outlive
// it and the files opened through it, as it must outlive them itself. Thread-safe.
//
//   FaultyFiles files(memory);
//   files.failNth(FileOperation::write, 2, ENOSPC, "agent.ini");  // the second write to such a path
#pragma once

#include <array>
#include <string>
#include <vector>

#include "platform/fake/fake_lock.h"
#include "platform/fake/forwarding_files.h"

namespace korvane::platform {

enum class FileOperation {
  open,
  read,
  seek,
  write,
  truncate,
  flush,
  lock,
  info,
  replace,
  rename,
  remove,
  makeDirectories,
  list,
  flushDirectory,
};

class FaultyFiles final : public ForwardingFiles {
 public:
  using ForwardingFiles::ForwardingFiles;

  // Fails the n-th operation of the kind from now on (1: the next one) on paths that
  // contain `part`, once.
  void failNth(FileOperation operation, int nth, int error, const std::string& part = "");
  // Fails all of them until heal().
  void failAll(FileOperation operation, int error, const std::string& part = "");
  void heal();
  // How many operations of the kind there were, failed ones included.
  int count(FileOperation operation);

  int open(const std::string& path, OpenMode mode, std::unique_ptr<File>& out) override;
  int lock(const std::string& path, std::unique_ptr<FileLock>& out) override;
  int info(const std::string& path, FileInfo& out) override;
  int replace(const std::string& from, const std::string& to) override;
  int rename(const std::string& from, const std::string& to) override;
  int remove(const std::string& path) override;
  int makeDirectories(const std::string& path) override;
  int list(const std::string& directory, std::vector<DirectoryEntry>& out) override;
  int flushDirectory(const std::string& directory) override;

  // Counts an operation; what it is to fail with, 0 for nothing. For the files opened through this.
  int strike(FileOperation operation, const std::string& path);

 private:
  struct Fault {
    FileOperation operation;
    int countdown;  // 0: every one
    int error;
    std::string part;
  };
  FakeMutex _mutex;
  std::vector<Fault> _faults GUARDED_BY(_mutex);
  std::array<int, static_cast<size_t>(FileOperation::flushDirectory) + 1> _counts
      GUARDED_BY(_mutex){};
};

}  // namespace korvane::platform
