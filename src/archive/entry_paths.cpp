#include "archive/entry_paths.h"

#include "util/utf8.h"

namespace korvane::archive {

bool EntryPaths::add(std::string_view name) {
  std::u16string path = utf8ToUtf16(name);
  for (size_t slash = path.find(u'/'); slash != std::u16string::npos;
       slash = path.find(u'/', slash + 1)) {
    std::u16string directory = path.substr(0, slash);
    if (_files.count(directory)) return false;
    const bool last = slash + 1 == path.size();
    if (!_directories.insert(std::move(directory)).second && last && !_named.insert(path).second)
      return false;
    if (last) _named.insert(path);
  }
  if (path.ends_with(u'/')) return true;
  return !_directories.count(path) && _files.insert(std::move(path)).second;
}

}  // namespace korvane::archive
