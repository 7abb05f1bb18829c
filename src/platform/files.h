// Files and directories. All state that the agent keeps is written through this interface, so that
// a test can fail, record or forget any single operation.
//
// Paths are UTF-8 with the system's separator; helpers to build them are in platform/paths.h.
// Errors: every operation returns 0 or an errno value. A File is used by one thread at a time; a
// Files may be used by any number. Text is never translated: all files are opened in binary.
//
// Windows: wide paths (with the long-path prefix where needed); files are opened sharing read,
// write and delete, so that reading a log never disturbs its writer; replace() and remove() try
// again for up to 200 ms while another program holds the file.
// POSIX: replace() is rename(2); flushDirectory() makes it durable. Files are made for their owner
// and to be read by its group (0640), directories 0750.
//
// Whoever may plant a link where a file is made or changed leads nobody elsewhere: only mode read
// follows a link in the last part; the others and lock() give ELOOP.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace korvane::platform {

struct FileInfo {
  uint64_t size = 0;  // bytes
  int64_t modifiedNs =
      0;  // nanoseconds since 1970-01-01 UTC, as exact as the file system keeps them
  uint64_t identity = 0;  // inode or file index: differs when a file was replaced by another
  bool isDirectory = false;
};

struct DirectoryEntry {
  std::string name;  // without the directory
  bool isDirectory = false;
};

enum class OpenMode {
  read,       // must exist ("rb")
  readWrite,  // must exist, position 0 ("rb+")
  create,     // made, or emptied when it exists ("wb")
  createNew,  // made; EEXIST when anything has the name, a link that leads nowhere included ("wbx")
  append,     // made when missing; every write goes to the end in one piece ("ab")
};

// An open file; closed by its destructor.
class File {
 public:
  virtual ~File() = default;
  // Reads up to `size` bytes; `got` is less only at the end of the file.
  [[nodiscard]] virtual int read(void* buffer, size_t size, size_t& got) = 0;
  // Writes all bytes or gives an error; in mode append, in one write to the system.
  [[nodiscard]] virtual int write(const void* bytes, size_t size) = 0;
  // Moves to `offset` bytes from the start; a negative offset is EINVAL and moves nothing.
  [[nodiscard]] virtual int seek(int64_t offset) = 0;
  virtual int64_t tell() = 0;
  [[nodiscard]] virtual int info(FileInfo& out) = 0;
  [[nodiscard]] virtual int truncate(uint64_t size) = 0;
  // Returns when all that was written has reached the disk.
  [[nodiscard]] virtual int flush() = 0;
};

// An exclusively opened lock file; given back by its destructor.
class FileLock {
 public:
  virtual ~FileLock() = default;
};

class Files {
 public:
  virtual ~Files() = default;
  virtual char separator() const = 0;
  // Twelve lower-case letters and digits that nobody can know before, for the name of a new file.
  virtual std::string freshName() = 0;
  [[nodiscard]] virtual int open(const std::string& path, OpenMode mode,
                                 std::unique_ptr<File>& out) = 0;
  // Opens `path`, made when missing, for this holder alone; EACCES at once while another process or
  // another holder of this process has it.
  [[nodiscard]] virtual int lock(const std::string& path, std::unique_ptr<FileLock>& out) = 0;
  [[nodiscard]] virtual int info(const std::string& path, FileInfo& out) = 0;
  // Where a full path leads once every link on the way is followed; of what is not there yet, where it
  // would be made. ELOOP or another error for links that lead in circles, or nowhere on Windows.
  [[nodiscard]] virtual int resolve(const std::string& path, std::string& out) = 0;
  // Puts `from` in the place of `to` in one step: a reader sees the old file or the new one.
  [[nodiscard]] virtual int replace(const std::string& from, const std::string& to) = 0;
  // Renames; EEXIST when `to` exists.
  [[nodiscard]] virtual int rename(const std::string& from, const std::string& to) = 0;
  // Removes a file, or a directory that is empty.
  [[nodiscard]] virtual int remove(const std::string& path) = 0;
  // Makes the directory and those above it; no error when it exists.
  [[nodiscard]] virtual int makeDirectories(const std::string& path) = 0;
  // The entries, sorted by the bytes of their names.
  [[nodiscard]] virtual int list(const std::string& directory,
                                 std::vector<DirectoryEntry>& out) = 0;
  // How many bytes this process may still write to the disk of an existing directory.
  [[nodiscard]] virtual int freeBytes(const std::string& directory, uint64_t& out) = 0;
  // How many bytes that disk holds in all.
  [[nodiscard]] virtual int totalBytes(const std::string& directory, uint64_t& out) = 0;
  // Makes renames, creations and removals in `directory` durable.
  [[nodiscard]] virtual int flushDirectory(const std::string& directory) = 0;
};

}  // namespace korvane::platform
