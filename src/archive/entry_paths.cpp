#include "archive/entry_paths.h"

#include "archive/entry_name.h"

namespace korvane::archive {

bool EntryPaths::add(std::string_view name) {
  std::string path = foldedName(name);
  for (size_t slash = path.find('/'); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    std::string directory = path.substr(0, slash);
    if (_files.count(directory)) return false;
    const bool last = slash + 1 == path.size();
    if (!_directories.insert(std::move(directory)).second && last && !_named.insert(path).second)
      return false;
    if (last) _named.insert(path);
  }
  if (path.ends_with('/')) return true;
  return !_directories.count(path) && _files.insert(std::move(path)).second;
}

}  // namespace korvane::archive
