#include "platform/fake/memory_files.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/paths.h"

namespace korvane::platform {
namespace {

constexpr uint64_t kFirstFreshName = 100000000000;  // of twelve digits

}  // namespace

struct MemoryNode {
  bool directory = false;
  std::string bytes;
  int64_t modifiedNs = 0;
  uint64_t identity = 0;
  bool locked = false;
};

struct MemoryDisk {
  explicit MemoryDisk(Clock& source) : clock(source) {}

  Clock& clock;
  FakeMutex mutex;
  std::map<std::string, std::shared_ptr<MemoryNode>> nodes GUARDED_BY(mutex);
  uint64_t lastIdentity GUARDED_BY(mutex) = 0;
  uint64_t freshNames GUARDED_BY(mutex) = 0;

  MemoryNode* find(const std::string& path) REQUIRES(mutex) {
    const auto found = nodes.find(path);
    return found == nodes.end() ? nullptr : found->second.get();
  }

  std::shared_ptr<MemoryNode> add(const std::string& path, bool directory) REQUIRES(mutex) {
    auto node = std::make_shared<MemoryNode>();
    node->directory = directory;
    node->identity = ++lastIdentity;
    touch(*node);
    nodes[path] = node;
    return node;
  }

  void touch(MemoryNode& node) REQUIRES(mutex) { node.modifiedNs = clock.wallMs() * 1000000; }

  // 0 when the directory that `path` lies in is there.
  int checkParent(const std::string& path) REQUIRES(mutex) {
    const MemoryNode* parent = find(directoryOf(path));
    return !parent ? ENOENT : parent->directory ? 0 : ENOTDIR;
  }

  bool hasChildren(const std::string& path) REQUIRES(mutex) {
    const auto next = nodes.upper_bound(path + "/");
    return next != nodes.end() && next->first.starts_with(path + "/");
  }

  void move(const std::string& from, const std::string& to) REQUIRES(mutex) {
    std::vector<std::pair<std::string, std::shared_ptr<MemoryNode>>> moved;
    for (auto at = nodes.begin(); at != nodes.end();) {
      const bool concerned = at->first == from || at->first.starts_with(from + "/");
      if (concerned) moved.emplace_back(to + at->first.substr(from.size()), at->second);
      at = concerned ? nodes.erase(at) : std::next(at);
    }
    for (auto& [path, node] : moved) nodes[path] = node;
  }
};

namespace {

// From the root, without doubled or trailing separators; a relative path counts from the root.
std::string normal(const std::string& path) {
  std::string out;
  size_t begin = 0;
  while (begin < path.size()) {
    size_t end = path.find('/', begin);
    if (end == std::string::npos) end = path.size();
    const std::string part = path.substr(begin, end - begin);
    if (!part.empty() && part != ".") out += "/" + part;
    begin = end + 1;
  }
  return out.empty() ? "/" : out;
}

class MemoryFile final : public File {
 public:
  MemoryFile(std::shared_ptr<MemoryDisk> disk, std::shared_ptr<MemoryNode> node, OpenMode mode)
      : _disk(std::move(disk)), _node(std::move(node)), _mode(mode) {}

  int read(void* buffer, size_t size, size_t& got) override {
    got = 0;
    if (_mode == OpenMode::append) return EBADF;
    FakeLock lock(_disk->mutex);
    const size_t length = _node->bytes.size();
    if (_position >= length) return 0;
    got = std::min(size, length - _position);
    std::memcpy(buffer, _node->bytes.data() + _position, got);
    _position += got;
    return 0;
  }

  int write(const void* bytes, size_t size) override {
    if (_mode == OpenMode::read) return EBADF;
    if (size == 0) return 0;
    FakeLock lock(_disk->mutex);
    std::string& content = _node->bytes;
    if (_mode == OpenMode::append) _position = content.size();
    if (content.size() < _position + size) content.resize(_position + size);
    std::memcpy(content.data() + _position, bytes, size);
    _position += size;
    _disk->touch(*_node);
    return 0;
  }

  int seek(int64_t offset) override {
    if (offset < 0) return EINVAL;
    _position = static_cast<size_t>(offset);
    return 0;
  }

  int64_t tell() override { return static_cast<int64_t>(_position); }

  int info(FileInfo& out) override {
    FakeLock lock(_disk->mutex);
    out = {_node->bytes.size(), _node->modifiedNs, _node->identity, false};
    return 0;
  }

  int truncate(uint64_t size) override {
    if (_mode == OpenMode::read) return EINVAL;
    FakeLock lock(_disk->mutex);
    _node->bytes.resize(static_cast<size_t>(size));
    _disk->touch(*_node);
    return 0;
  }

  int flush() override { return 0; }

 private:
  const std::shared_ptr<MemoryDisk> _disk;
  const std::shared_ptr<MemoryNode> _node;
  const OpenMode _mode;
  size_t _position = 0;
};

class MemoryLock final : public FileLock {
 public:
  MemoryLock(std::shared_ptr<MemoryDisk> disk, std::shared_ptr<MemoryNode> node)
      : _disk(std::move(disk)), _node(std::move(node)) {}
  ~MemoryLock() override {
    FakeLock lock(_disk->mutex);
    _node->locked = false;
  }

 private:
  const std::shared_ptr<MemoryDisk> _disk;
  const std::shared_ptr<MemoryNode> _node;
};

}  // namespace

MemoryFiles::MemoryFiles(Clock& clock) : _disk(std::make_shared<MemoryDisk>(clock)) {
  FakeLock lock(_disk->mutex);
  _disk->add("/", true);
}

MemoryFiles::~MemoryFiles() = default;

std::string MemoryFiles::freshName() {
  FakeLock lock(_disk->mutex);
  return std::to_string(kFirstFreshName + ++_disk->freshNames);
}

int MemoryFiles::open(const std::string& path, OpenMode mode, std::unique_ptr<File>& out) {
  const std::string at = normal(path);
  FakeLock lock(_disk->mutex);
  if (const int error = _disk->checkParent(at)) return error;
  if (!_disk->find(at)) {
    if (mode == OpenMode::read || mode == OpenMode::readWrite) return ENOENT;
    _disk->add(at, false);
  } else if (mode == OpenMode::createNew) {
    return EEXIST;
  }
  const std::shared_ptr<MemoryNode> node = _disk->nodes[at];
  if (node->directory) return EISDIR;
  if (mode == OpenMode::create) {
    node->bytes.clear();
    _disk->touch(*node);
  }
  out = std::make_unique<MemoryFile>(_disk, node, mode);
  return 0;
}

int MemoryFiles::lock(const std::string& path, std::unique_ptr<FileLock>& out) {
  const std::string at = normal(path);
  FakeLock guard(_disk->mutex);
  if (const int error = _disk->checkParent(at)) return error;
  if (!_disk->find(at)) _disk->add(at, false);
  const std::shared_ptr<MemoryNode> node = _disk->nodes[at];
  if (node->directory) return EISDIR;
  if (node->locked) return EACCES;
  node->locked = true;
  out = std::make_unique<MemoryLock>(_disk, node);
  return 0;
}

int MemoryFiles::info(const std::string& path, FileInfo& out) {
  FakeLock lock(_disk->mutex);
  const MemoryNode* node = _disk->find(normal(path));
  if (!node) return _disk->checkParent(normal(path)) == ENOTDIR ? ENOTDIR : ENOENT;
  out = {node->bytes.size(), node->modifiedNs, node->identity, node->directory};
  return 0;
}

int MemoryFiles::resolve(const std::string& path, std::string& out) {
  out = normal(path);
  return 0;
}

int MemoryFiles::freeBytes(const std::string& directory, uint64_t& out) {
  FileInfo found;
  if (const int error = info(directory, found)) return error;
  out = _freeBytes;
  return 0;
}

int MemoryFiles::totalBytes(const std::string& directory, uint64_t& out) {
  FileInfo found;
  if (const int error = info(directory, found)) return error;
  out = kTotalBytes;
  return 0;
}

int MemoryFiles::replace(const std::string& from, const std::string& to) {
  const std::string source = normal(from), target = normal(to);
  FakeLock lock(_disk->mutex);
  const MemoryNode* moved = _disk->find(source);
  if (!moved) return ENOENT;
  if (const int error = _disk->checkParent(target)) return error;
  if (source == target) return 0;
  if (const MemoryNode* replaced = _disk->find(target)) {
    if (replaced->directory != moved->directory) return replaced->directory ? EISDIR : ENOTDIR;
    if (replaced->directory && _disk->hasChildren(target)) return ENOTEMPTY;
  }
  _disk->move(source, target);
  return 0;
}

int MemoryFiles::rename(const std::string& from, const std::string& to) {
  FileInfo existing;
  if (info(from, existing) == 0 && info(to, existing) == 0) return EEXIST;
  return replace(from, to);
}

int MemoryFiles::remove(const std::string& path) {
  const std::string at = normal(path);
  FakeLock lock(_disk->mutex);
  const MemoryNode* node = _disk->find(at);
  if (!node) return ENOENT;
  if (node->directory && _disk->hasChildren(at)) return ENOTEMPTY;
  _disk->nodes.erase(at);
  return 0;
}

int MemoryFiles::makeDirectories(const std::string& path) {
  const std::string full = normal(path);
  FakeLock lock(_disk->mutex);
  for (size_t end = full.find('/', 1);; end = full.find('/', end + 1)) {
    const std::string part = full.substr(0, end);
    const MemoryNode* node = _disk->find(part);
    if (!node) _disk->add(part, true);
    const bool last = end == std::string::npos;
    if (node && !node->directory) return last ? EEXIST : ENOTDIR;
    if (last) return 0;
  }
}

int MemoryFiles::list(const std::string& directory, std::vector<DirectoryEntry>& out) {
  out.clear();
  const std::string at = normal(directory);
  FakeLock lock(_disk->mutex);
  const MemoryNode* node = _disk->find(at);
  if (!node) return ENOENT;
  if (!node->directory) return ENOTDIR;
  for (const auto& [path, child] : _disk->nodes)
    if (path != "/" && directoryOf(path) == at) out.push_back({fileNameOf(path), child->directory});
  return 0;
}

int MemoryFiles::flushDirectory(const std::string& directory) {
  FakeLock lock(_disk->mutex);
  const MemoryNode* node = _disk->find(normal(directory));
  return !node ? ENOENT : node->directory ? 0 : ENOTDIR;
}

void MemoryFiles::put(const std::string& path, std::string_view bytes) {
  makeDirectories(directoryOf(normal(path)));
  FakeLock lock(_disk->mutex);
  _disk->add(normal(path), false)->bytes = bytes;
}

void MemoryFiles::identify(const std::string& path, uint64_t identity, int64_t modifiedNs) {
  FakeLock lock(_disk->mutex);
  _disk->lastIdentity = std::max(_disk->lastIdentity, identity);
  MemoryNode* const node = _disk->find(normal(path));
  if (!node) return;
  node->identity = identity;
  node->modifiedNs = modifiedNs;
}

std::string MemoryFiles::content(const std::string& path) {
  FakeLock lock(_disk->mutex);
  const MemoryNode* node = _disk->find(normal(path));
  return node ? node->bytes : std::string();
}

std::vector<std::string> MemoryFiles::paths() {
  FakeLock lock(_disk->mutex);
  std::vector<std::string> paths;
  for (const auto& [path, node] : _disk->nodes)
    if (!node->directory) paths.push_back(path);
  return paths;
}

std::vector<std::string> MemoryFiles::directories() {
  FakeLock lock(_disk->mutex);
  std::vector<std::string> paths;
  for (const auto& [path, node] : _disk->nodes)
    if (node->directory && path != "/") paths.push_back(path);
  return paths;
}

}  // namespace korvane::platform
