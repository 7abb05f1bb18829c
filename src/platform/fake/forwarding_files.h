// Files and a file that hand every call on (forwarding.h).
//
//   class NoDisk : public ForwardingFiles {
//     using ForwardingFiles::ForwardingFiles;
//     int flushDirectory(const std::string&) override { return EIO; }
//   };
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/files.h"

namespace korvane::platform {

// Owns the file that it wraps.
class ForwardingFile : public File {
 public:
  explicit ForwardingFile(std::unique_ptr<File> to) : _to(std::move(to)) {}
  int read(void* buffer, size_t size, size_t& got) override { return _to->read(buffer, size, got); }
  int write(const void* bytes, size_t size) override { return _to->write(bytes, size); }
  int seek(int64_t offset) override { return _to->seek(offset); }
  int64_t tell() override { return _to->tell(); }
  int info(FileInfo& out) override { return _to->info(out); }
  int truncate(uint64_t size) override { return _to->truncate(size); }
  int flush() override { return _to->flush(); }

 protected:
  const std::unique_ptr<File> _to;
};

// A path without "..", as a system resolves it where no folder is a link.
inline std::string resolved(std::string path) {
  for (size_t at; (at = path.find("/../")) != std::string::npos;) {
    const size_t parent = at == 0 ? 0 : path.rfind('/', at - 1);
    path.erase(parent, at + 3 - parent);
  }
  return path;
}

class ForwardingFiles : public Files {
 public:
  explicit ForwardingFiles(Files& to) : _to(to) {}
  char separator() const override { return _to.separator(); }
  std::string freshName() override { return _to.freshName(); }
  int open(const std::string& path, OpenMode mode, std::unique_ptr<File>& out) override {
    return _to.open(path, mode, out);
  }
  int lock(const std::string& path, std::unique_ptr<FileLock>& out) override {
    return _to.lock(path, out);
  }
  int info(const std::string& path, FileInfo& out) override { return _to.info(path, out); }
  int freeBytes(const std::string& directory, uint64_t& out) override {
    return _to.freeBytes(directory, out);
  }
  int totalBytes(const std::string& directory, uint64_t& out) override {
    return _to.totalBytes(directory, out);
  }
  int resolve(const std::string& path, std::string& out) override { return _to.resolve(path, out); }
  int replace(const std::string& from, const std::string& to) override {
    return _to.replace(from, to);
  }
  int rename(const std::string& from, const std::string& to) override {
    return _to.rename(from, to);
  }
  int remove(const std::string& path) override { return _to.remove(path); }
  int makeDirectories(const std::string& path) override { return _to.makeDirectories(path); }
  int list(const std::string& directory, std::vector<DirectoryEntry>& out) override {
    return _to.list(directory, out);
  }
  int flushDirectory(const std::string& directory) override {
    return _to.flushDirectory(directory);
  }

 protected:
  Files& _to;
};

}  // namespace korvane::platform
