// A file that is written piece by piece beside its place ("<path>.new-<fresh name>") and then put there: a reader, or
// a machine that loses power at any instant, sees the former file or the new one, never a part.
//
// Lifetime: refers to `files`. What is not put into place is removed by the destructor; what a crash left of an
// earlier one of this path goes when the next one is made. Threads: one, and one writer of a path.
// Errors: the first one stays, as an errno value; what is added after it is dropped.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/fwd.h"

namespace korvane {

class AsideFile {
 public:
  AsideFile(platform::Files& files, std::string path);
  ~AsideFile();
  AsideFile(const AsideFile&) = delete;
  AsideFile& operator=(const AsideFile&) = delete;

  void add(std::string_view text);
  // Flushes and puts the file into its place; the first error of all.
  [[nodiscard]] int commit();
  int error() const { return _error; }
  const std::string& path() const { return _path; }

 private:
  void drain();

  platform::Files& _files;
  const std::string _path, _aside;
  std::unique_ptr<platform::File> _file;
  std::string _buffer;
  int _error = 0;
  bool _placed = false;
};

}  // namespace korvane
