#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>

#include "platform/descriptor_posix.h"
#include "platform/files.h"
#include "platform/native.h"
#include "platform/paths.h"

namespace korvane::platform {
namespace {

// State and logs of a privileged agent are nobody else's to write, and its group's to read.
constexpr mode_t kFileMode = 0640;
constexpr mode_t kDirectoryMode = 0750;
constexpr int kMostLinks = 40;  // that one path goes through, as the system itself has it

int errnoOf(int returned) {
  return returned == 0 ? 0 : errno;
}

void fill(const struct stat& from, FileInfo& out) {
  out.size = static_cast<uint64_t>(from.st_size);
  out.modifiedNs = int64_t{from.st_mtim.tv_sec} * 1000000000 + from.st_mtim.tv_nsec;
  out.identity = from.st_ino;
  out.isDirectory = S_ISDIR(from.st_mode);
}

// Keeps its own position, so that tell() and seek() cost no system call.
class PosixFile final : public File {
 public:
  PosixFile(Descriptor descriptor, bool append)
      : _descriptor(std::move(descriptor)), _append(append) {}

  int read(void* buffer, size_t size, size_t& got) override {
    got = 0;
    while (got < size) {
      const ssize_t n =
          ::pread(_descriptor.get(), static_cast<char*>(buffer) + got, size - got, _position);
      if (n == 0) break;
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return errno;
      got += static_cast<size_t>(n);
      _position += n;
    }
    return 0;
  }

  int write(const void* bytes, size_t size) override {
    const char* at = static_cast<const char*>(bytes);
    while (size > 0) {
      const ssize_t n = _append ? ::write(_descriptor.get(), at, size)
                                : ::pwrite(_descriptor.get(), at, size, _position);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) return errno;
      at += n;
      size -= static_cast<size_t>(n);
      if (!_append) _position += n;
    }
    if (_append) _position = ::lseek(_descriptor.get(), 0, SEEK_CUR);
    return 0;
  }

  int seek(int64_t offset) override {
    if (offset < 0) return EINVAL;
    _position = offset;
    return 0;
  }

  int64_t tell() override { return _position; }

  int info(FileInfo& out) override {
    struct stat found;
    if (::fstat(_descriptor.get(), &found) != 0) return errno;
    fill(found, out);
    return 0;
  }

  int truncate(uint64_t size) override {
    return errnoOf(::ftruncate(_descriptor.get(), static_cast<off_t>(size)));
  }

  int flush() override { return errnoOf(::fsync(_descriptor.get())); }

 private:
  Descriptor _descriptor;
  const bool _append;
  int64_t _position = 0;
};

class PosixFileLock final : public FileLock {
 public:
  explicit PosixFileLock(Descriptor descriptor) : _descriptor(std::move(descriptor)) {}

 private:
  Descriptor _descriptor;
};

int flagsOf(OpenMode mode) {
  switch (mode) {
    case OpenMode::read:
      return O_RDONLY;
    case OpenMode::readWrite:
      return O_RDWR | O_NOFOLLOW;
    case OpenMode::create:
      return O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW;
    case OpenMode::createNew:
      return O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW;
    case OpenMode::append:
      return O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW;
  }
  return O_RDONLY;
}

bool isDirectoryEntry(const std::string& directory, const dirent& entry) {
  if (entry.d_type == DT_DIR || entry.d_type == DT_REG) return entry.d_type == DT_DIR;
  struct stat found;
  return ::stat((directory + "/" + entry.d_name).c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

class PosixFiles final : public Files {
 public:
  char separator() const override { return '/'; }

  std::string freshName() override {
    uint64_t bits = 0;
    while (::getrandom(&bits, sizeof bits, 0) < 0 && errno == EINTR) continue;
    return nameOfBits(bits);
  }

  int open(const std::string& path, OpenMode mode, std::unique_ptr<File>& out) override {
    Descriptor descriptor(::open(path.c_str(), flagsOf(mode) | O_CLOEXEC, kFileMode));
    if (!descriptor) return errno;
    struct stat found;
    if (::fstat(descriptor.get(), &found) != 0) return errno;
    if (S_ISDIR(found.st_mode)) return EISDIR;
    out = std::make_unique<PosixFile>(std::move(descriptor), mode == OpenMode::append);
    return 0;
  }

  // flock(2) belongs to the open file, so it also keeps out a second holder of this process.
  int lock(const std::string& path, std::unique_ptr<FileLock>& out) override {
    Descriptor descriptor(
        ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, kFileMode));
    if (!descriptor) return errno;
    if (::flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0)
      return errno == EWOULDBLOCK ? EACCES : errno;
    out = std::make_unique<PosixFileLock>(std::move(descriptor));
    return 0;
  }

  int info(const std::string& path, FileInfo& out) override {
    struct stat found;
    if (::stat(path.c_str(), &found) != 0) return errno;
    fill(found, out);
    return 0;
  }

  int freeBytes(const std::string& directory, uint64_t& out) override {
    struct statvfs disk {};
    if (::statvfs(directory.c_str(), &disk) != 0) return errno;
    out = uint64_t{disk.f_bavail} * disk.f_frsize;
    return 0;
  }

  int totalBytes(const std::string& directory, uint64_t& out) override {
    struct statvfs disk {};
    if (::statvfs(directory.c_str(), &disk) != 0) return errno;
    out = uint64_t{disk.f_blocks} * disk.f_frsize;
    return 0;
  }

  int resolve(const std::string& path, std::string& out) override {
    std::string rest = path;
    std::string done;
    for (int links = 0; links <= kMostLinks;) {
      const size_t begin = rest.find_first_not_of('/');
      if (begin == std::string::npos) {
        out = done.empty() ? "/" : done;
        return 0;
      }
      const size_t end = std::min(rest.find('/', begin), rest.size());
      const std::string part = rest.substr(begin, end - begin);
      rest.erase(0, end);
      if (part == "..") done.erase(std::min(done.rfind('/'), done.size()));
      if (part == "." || part == "..") continue;
      done += '/' + part;
      char target[PATH_MAX];
      const ssize_t length = ::readlink(done.c_str(), target, sizeof target);
      if (length < 0 && errno != EINVAL && errno != ENOENT && errno != ENOTDIR) return errno;
      if (length < 0) continue;
      if (static_cast<size_t>(length) == sizeof target) return ENAMETOOLONG;
      rest.insert(0, target, static_cast<size_t>(length));
      done.erase(target[0] == '/' ? 0 : done.rfind('/'));
      ++links;
    }
    return ELOOP;
  }

  int replace(const std::string& from, const std::string& to) override {
    return errnoOf(::rename(from.c_str(), to.c_str()));
  }

  int rename(const std::string& from, const std::string& to) override {
    const int error =
        errnoOf(::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE));
    if (error != EINVAL && error != ENOSYS) return error;
    // A file system without the flag: a second name refuses an existing `to` just as well.
    if (::link(from.c_str(), to.c_str()) != 0) return errno;
    return errnoOf(::unlink(from.c_str()));
  }

  int remove(const std::string& path) override { return errnoOf(::remove(path.c_str())); }

  int makeDirectories(const std::string& path) override {
    for (size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
      const std::string part = path.substr(0, end);
      if (::mkdir(part.c_str(), kDirectoryMode) != 0 && errno != EEXIST) return errno;
      if (end == std::string::npos) break;
    }
    FileInfo made;
    const int error = info(path, made);
    return error ? error : made.isDirectory ? 0 : EEXIST;
  }

  int list(const std::string& directory, std::vector<DirectoryEntry>& out) override {
    out.clear();
    const std::unique_ptr<DIR, int (*)(DIR*)> stream(::opendir(directory.c_str()), ::closedir);
    if (!stream) return errno;
    errno = 0;
    while (const dirent* entry = ::readdir(stream.get())) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") out.push_back({name, isDirectoryEntry(directory, *entry)});
      errno = 0;
    }
    if (errno) return errno;
    std::sort(out.begin(), out.end(), [](auto& a, auto& b) { return a.name < b.name; });
    return 0;
  }

  int flushDirectory(const std::string& directory) override {
    const Descriptor descriptor(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor) return errno;
    return errnoOf(::fsync(descriptor.get()));
  }
};

}  // namespace

std::unique_ptr<Files> makeNativeFiles() {
  return std::make_unique<PosixFiles>();
}

}  // namespace korvane::platform
