// The paths that an archive's entries need, compared without case (platform/names.h): no two entries may
// need the same one, and none may be both a file and a directory. A value of one thread.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "platform/names.h"

namespace korvane::archive {

class EntryPaths {
 public:
  // False when another entry needs the name's path, or one on the way to it is a file.
  [[nodiscard]] bool add(std::string_view name);

 private:
  using Paths = std::set<std::u16string, platform::NameOrder>;
  Paths _files;
  Paths _directories;
  Paths _named;  // directories that have an entry of their own
};

}  // namespace korvane::archive
