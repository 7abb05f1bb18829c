// The paths that an archive's entries need, compared without case: no two entries may need the same
// one, and none may be both a file and a directory. A value of one thread.
#pragma once

#include <set>
#include <string>
#include <string_view>

namespace korvane::archive {

class EntryPaths {
 public:
  // False when another entry needs the name's path, or one on the way to it is a file.
  [[nodiscard]] bool add(std::string_view name);

 private:
  std::set<std::string> _files;
  std::set<std::string> _directories;
  std::set<std::string> _named;  // directories that have an entry of their own
};

}  // namespace korvane::archive
