#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <vector>

#include "platform/reading_posix.h"
#include "platform/survey_posix.h"

namespace korvane::platform {
namespace {

class PlainContent final : public SurveyedContent {
 public:
  explicit PlainContent(Descriptor file) : _file(std::move(file)) {}

  int read(void* buffer, size_t size, size_t& got) override {
    ssize_t n;
    do {
      n = ::read(_file.get(), buffer, size);
    } while (n < 0 && errno == EINTR);
    got = n > 0 ? static_cast<size_t>(n) : 0;
    return n < 0 ? errno : 0;
  }

 private:
  const Descriptor _file;
};

int64_t milliseconds(const struct statx_timestamp& time) {
  return int64_t{time.tv_sec} * 1000 + time.tv_nsec / 1000000;
}

class PosixFileWalk final : public FileWalk {
 public:
  PosixFileWalk(SurveyGuide& guide, std::string root, std::unique_ptr<OpenFolder> folder,
                dev_t device)
      : _guide(guide), _root(std::move(root)), _device(device) {
    _levels.push_back({std::move(folder), 0});
  }

  bool next(SurveyedEntry& out) override {
    while (!_levels.empty()) {
      if (!_guide.goOn()) return false;
      Level& level = _levels.back();
      const char* name = level.folder->next();
      if (!name) {
        leave();
      } else if (look(level, name, out)) {
        return true;
      }
    }
    return false;
  }

  size_t depth() const override { return _levels.size() - 1; }

  void enter() override {
    auto folder = std::make_unique<OpenFolder>(_levels.back().folder->descriptor(), _name, false);
    const size_t length = _path.size();
    _path += _name + "/";
    struct stat found {};
    int error = folder->error();
    if (!error && ::fstat(folder->descriptor(), &found) != 0) error = errno;
    if (error || found.st_dev != _device) {
      if (error && error != ENOENT && error != ENOTDIR && error != ELOOP)
        _guide.skipped(full(_path.substr(0, _path.size() - 1)), error);
      _path.resize(length);
      return;
    }
    _levels.push_back({std::move(folder), length});
  }

  int open(std::unique_ptr<SurveyedContent>& out) override {
    Descriptor file;
    if (const int error = openPlain(_levels.back().folder->descriptor(), _name, false, file))
      return error;
    out = std::make_unique<PlainContent>(std::move(file));
    return 0;
  }

  std::string version() override { return {}; }
  std::string signer() override { return {}; }

 private:
  struct Level {
    std::unique_ptr<OpenFolder> folder;
    size_t above;  // how long _path is in the folder above
  };

  std::string full(const std::string& relative) const {
    return relative.empty()       ? _root
           : _root.ends_with('/') ? _root + relative
                                  : _root + "/" + relative;
  }

  void leave() {
    if (const int error = _levels.back().folder->error()) {
      _guide.skipped(full(_path.substr(0, _path.empty() ? 0 : _path.size() - 1)), error);
    }
    _path.resize(_levels.back().above);
    _levels.pop_back();
  }

  // Whether the entry is one that is told.
  bool look(const Level& level, const char* name, SurveyedEntry& out) {
    constexpr unsigned kWanted =
        STATX_TYPE | STATX_SIZE | STATX_MTIME | STATX_BTIME | STATX_MODE | STATX_INO;
    struct statx found {};
    if (::statx(level.folder->descriptor(), name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, kWanted,
                &found) != 0) {
      if (errno != ENOENT) _guide.skipped(full(_path + name), errno);
      return false;
    }
    if (!S_ISDIR(found.stx_mode) && !S_ISREG(found.stx_mode)) return false;
    // What is mounted here, a folder of the same file system included.
    if (::makedev(found.stx_dev_major, found.stx_dev_minor) != _device ||
        (found.stx_attributes & STATX_ATTR_MOUNT_ROOT))
      return false;
    _name = name;
    out.name = _name;
    out.relative = _path + _name;
    out.isFolder = S_ISDIR(found.stx_mode);
    out.size = found.stx_size;
    out.modifiedMs = milliseconds(found.stx_mtime);
    out.createdMs = found.stx_mask & STATX_BTIME ? milliseconds(found.stx_btime) : 0;
    return true;
  }

  SurveyGuide& _guide;
  const std::string _root;
  const dev_t _device;
  std::vector<Level> _levels;
  std::string _path;  // of the folder that the walk is in, below the root, with a separator behind
  std::string _name;  // of the entry that was told last
};

}  // namespace

int walkFiles(SurveyGuide& guide, const std::string& root, std::unique_ptr<FileWalk>& out) {
  if (root.empty() || root.front() != '/') return EINVAL;
  auto folder = std::make_unique<OpenFolder>(AT_FDCWD, root, true);
  if (folder->error()) return folder->error();
  struct stat found;
  if (::fstat(folder->descriptor(), &found) != 0) return errno;
  out = std::make_unique<PosixFileWalk>(guide, root, std::move(folder), found.st_dev);
  return 0;
}

}  // namespace korvane::platform
