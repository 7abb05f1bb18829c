#include <limits.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <vector>

#include "platform/rights.h"

namespace korvane::platform {
namespace {

constexpr int kMostLinks = 40;

bool trusted(uid_t account) {
  return account == 0 || account == ::geteuid();
}

bool trustedGroup(gid_t group) {
  return group == 0 || group == ::getegid();
}

// The group's bits of a file with an access list are the most that any of its entries has.
bool hasAccessList(const std::string& path) {
  return ::getxattr(path.c_str(), "system.posix_acl_access", nullptr, 0) > 0;
}

std::string whoMayWrite(const std::string& path, const struct stat& found) {
  if (found.st_mode & S_IWOTH) return "everybody";
  if (!(found.st_mode & S_IWGRP)) return {};
  if (!trustedGroup(found.st_gid)) return "group " + std::to_string(found.st_gid);
  return hasAccessList(path) ? "accounts of its access list" : "";
}

// A way through the file system, one part after the other, links followed.
class Way {
 public:
  explicit Way(const std::string& path) { put(path); }

  std::string unsafe() {
    if (std::string found = look(); !found.empty() || _left.empty()) return found;
    while (!_left.empty()) {
      const std::string part = std::move(_left.back());
      _left.pop_back();
      if (part == "..") {
        _at.resize(_at.find_last_of('/'));
        continue;
      }
      _at += "/" + part;
      if (std::string found = look(); !found.empty() || _missing) return found;
    }
    return {};
  }

 private:
  void put(const std::string& path) {
    for (size_t end = path.size(); end > 0;) {
      const size_t begin = path.rfind('/', end - 1) + 1;
      const std::string part = path.substr(begin, end - begin);
      if (!part.empty() && part != ".") _left.push_back(part);
      end = begin ? begin - 1 : 0;
    }
  }

  // What is unsafe about the part that is reached; a link is stepped through.
  std::string look() {
    const std::string name = _at.empty() ? "/" : _at;
    struct stat found;
    if (::lstat(name.c_str(), &found) != 0) {
      _missing = true;
      return errno == ENOENT || errno == ENOTDIR ? "" : name + " cannot be looked at";
    }
    if (!trusted(found.st_uid))
      return name + " belongs to account " + std::to_string(found.st_uid) + ", its owner";
    if (S_ISLNK(found.st_mode)) return follow(name);
    // There others cannot touch what is not theirs, and the next part's owner is looked at.
    if (!_left.empty() && (found.st_mode & S_ISVTX)) return {};
    const std::string who = whoMayWrite(name, found);
    return who.empty() ? "" : name + " is writable by " + who;
  }

  std::string follow(const std::string& name) {
    char target[PATH_MAX];
    const ssize_t size = ::readlink(name.c_str(), target, sizeof target);
    if (size <= 0 || ++_links > kMostLinks) return name + " cannot be followed";
    const std::string to(target, static_cast<size_t>(size));
    _at.resize(to.front() == '/' ? 0 : _at.find_last_of('/'));
    put(to);
    return {};
  }

  std::vector<std::string> _left;  // the next part is the last
  std::string _at;                 // without a link, without a slash at its end
  int _links = 0;
  bool _missing = false;
};

}  // namespace

std::string unsafePart(const std::string& path) {
  return path.empty() || path.front() != '/' ? "" : Way(path).unsafe();
}

}  // namespace korvane::platform
