#include "platform/rights.h"

#include "platform/access_win.h"
#include "platform/wide_win.h"

namespace korvane::platform {
namespace {

// Of a folder above: who may put another in the place of what is in it, or give himself that right.
constexpr DWORD kReplace = FILE_DELETE_CHILD | DELETE | WRITE_DAC | WRITE_OWNER | GENERIC_ALL;

std::string unsafeHere(const std::string& path, DWORD rights) {
  const PathAccess access = accessOf(path, rights);
  if (access.error == ERROR_FILE_NOT_FOUND || access.error == ERROR_PATH_NOT_FOUND) return {};
  if (access.error) return path + " has an owner and rights that cannot be read";
  if (access.strangers.empty()) return {};
  const std::string& first = access.strangers.front();
  return first == kStrangerOwner ? path + " belongs to an ordinary account, its owner"
                                 : path + " is writable by " + first;
}

// "C:\\a\\b" -> "C:\\a" -> "C:\\" -> empty.
std::string above(const std::string& path) {
  const size_t end = path.find_last_not_of('\\');
  if (end == std::string::npos) return {};
  const size_t at = path.find_last_of('\\', end);
  if (at == std::string::npos || at < 2) return {};
  return path.substr(0, path[at - 1] == ':' ? at + 1 : at);
}

}  // namespace

std::string unsafePart(const std::string& path) {
  if (path.empty()) return {};
  DWORD rights = kChangeRights;
  for (std::string at = narrow(widePath(path)); !at.empty() && at.back() != ':'; at = above(at)) {
    if (std::string found = unsafeHere(at, rights); !found.empty()) return found;
    rights = kReplace;
  }
  return {};
}

}  // namespace korvane::platform
