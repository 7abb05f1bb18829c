#include "platform/reading_posix.h"

#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/survey.h"

namespace korvane::platform {
namespace {

ssize_t readSome(int descriptor, char* buffer, size_t size) {
  ssize_t got;
  do {
    got = ::read(descriptor, buffer, size);
  } while (got < 0 && errno == EINTR);
  return got;
}

}  // namespace

OpenFolder::OpenFolder(int at, const std::string& name, bool followed) {
  const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (followed ? 0 : O_NOFOLLOW);
  const int descriptor = ::openat(at, name.c_str(), flags);
  if (descriptor >= 0) _stream.reset(::fdopendir(descriptor));
  if (_stream) return;
  _error = errno;
  if (descriptor >= 0) ::close(descriptor);
}

const char* OpenFolder::next() {
  if (!_stream) return nullptr;
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(_stream.get());
    if (!entry) {
      _error = errno;
      return nullptr;
    }
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0)
      return entry->d_name;
  }
}

int openPlain(int at, const std::string& name, bool followed, Descriptor& out) {
  const int flags = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | (followed ? 0 : O_NOFOLLOW);
  Descriptor opened(::openat(at, name.c_str(), flags));
  if (!opened) return errno == ELOOP || errno == ENXIO ? ENOENT : errno;
  struct stat found;
  if (::fstat(opened.get(), &found) != 0) return errno;
  if (!S_ISREG(found.st_mode)) return ENOENT;
  out = std::move(opened);
  return 0;
}

int readStart(int at, const std::string& name, size_t most, std::string& out) {
  out.clear();
  Descriptor file;
  if (const int error = openPlain(at, name, true, file)) return error;
  out.resize(most);
  size_t length = 0;
  while (length < most) {
    const ssize_t got = readSome(file.get(), out.data() + length, most - length);
    if (got < 0) return errno;
    if (got == 0) break;
    length += static_cast<size_t>(got);
  }
  out.resize(length);
  return 0;
}

std::string linkTarget(int at, const std::string& name) {
  char target[PATH_MAX];
  const ssize_t length = ::readlinkat(at, name.c_str(), target, sizeof target);
  return length < 0 ? std::string() : std::string(target, static_cast<size_t>(length));
}

bool TextLines::fill() {
  const ssize_t got = readSome(_file.get(), _buffer.data(), _buffer.size());
  if (got < 0) _error = errno;
  _at = 0;
  _end = got > 0 ? static_cast<size_t>(got) : 0;
  return _end > 0;
}

bool TextLines::next(std::string& line) {
  line.clear();
  if (_at == _end && !fill()) return false;
  for (;;) {
    const char* begin = _buffer.data() + _at;
    const auto* feed = static_cast<const char*>(std::memchr(begin, '\n', _end - _at));
    const size_t length = feed ? static_cast<size_t>(feed - begin) : _end - _at;
    line.append(begin, std::min(length, kMostTextBytes - line.size()));
    _at += length + (feed ? 1 : 0);
    if (feed || !fill()) return true;
  }
}

}  // namespace korvane::platform
