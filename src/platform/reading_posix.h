// Reading what may be anything: folders entry by entry and texts line by line, in bounded memory and
// without waiting for a pipe or a device. Only for the POSIX siblings of the seam.
#pragma once

#include <dirent.h>

#include <array>
#include <memory>
#include <string>

#include "platform/descriptor_posix.h"

namespace korvane::platform {

// The entries of a folder as they come, "." and ".." left out; closed by its destructor.
class OpenFolder {
 public:
  // A folder, as it is (`followed`: or where a link leads) below another one or, with AT_FDCWD, by its path.
  // error() has the errno value when it cannot be had.
  OpenFolder(int at, const std::string& name, bool followed);
  int error() const { return _error; }
  int descriptor() const { return ::dirfd(_stream.get()); }
  // Null at the end and after an error, which error() then has.
  const char* next();

 private:
  struct Close {
    void operator()(DIR* stream) const { ::closedir(stream); }
  };
  std::unique_ptr<DIR, Close> _stream;
  int _error = 0;
};

// A plain file for reading; an errno value, ENOENT for what is none.
[[nodiscard]] int openPlain(int at, const std::string& name, bool followed, Descriptor& out);

// At most `most` bytes from the beginning of a file, as many as one read gives for those of /proc.
[[nodiscard]] int readStart(int at, const std::string& name, size_t most, std::string& out);

// Where a link leads; empty for what is none, with errno set.
std::string linkTarget(int at, const std::string& name);

// The lines of a text without their ends; what is beyond kMostTextBytes in one is dropped.
class TextLines {
 public:
  explicit TextLines(Descriptor file) : _file(std::move(file)) {}
  bool next(std::string& line);
  int error() const { return _error; }  // after next() has said no

 private:
  bool fill();
  Descriptor _file;
  std::array<char, 16 * 1024> _buffer{};
  size_t _at = 0, _end = 0;
  int _error = 0;
};

}  // namespace korvane::platform
