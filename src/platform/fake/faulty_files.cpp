#include "platform/fake/faulty_files.h"

namespace korvane::platform {
namespace {

class FaultyFile final : public ForwardingFile {
 public:
  FaultyFile(FaultyFiles& owner, std::string path, std::unique_ptr<File> to)
      : ForwardingFile(std::move(to)), _owner(owner), _path(std::move(path)) {}

  int read(void* buffer, size_t size, size_t& got) override {
    got = 0;
    if (const int error = _owner.strike(FileOperation::read, _path)) return error;
    return _to->read(buffer, size, got);
  }
  int seek(int64_t offset) override {
    if (const int error = _owner.strike(FileOperation::seek, _path)) return error;
    return _to->seek(offset);
  }
  int write(const void* bytes, size_t size) override {
    if (const int error = _owner.strike(FileOperation::write, _path)) return error;
    return _to->write(bytes, size);
  }
  int truncate(uint64_t size) override {
    if (const int error = _owner.strike(FileOperation::truncate, _path)) return error;
    return _to->truncate(size);
  }
  int flush() override {
    if (const int error = _owner.strike(FileOperation::flush, _path)) return error;
    return _to->flush();
  }

 private:
  FaultyFiles& _owner;
  const std::string _path;
};

}  // namespace

void FaultyFiles::failNth(FileOperation operation, int nth, int error, const std::string& part) {
  FakeLock lock(_mutex);
  _faults.push_back({operation, nth, error, part});
}

void FaultyFiles::failAll(FileOperation operation, int error, const std::string& part) {
  failNth(operation, 0, error, part);
}

void FaultyFiles::heal() {
  FakeLock lock(_mutex);
  _faults.clear();
}

int FaultyFiles::count(FileOperation operation) {
  FakeLock lock(_mutex);
  return _counts[static_cast<size_t>(operation)];
}

int FaultyFiles::strike(FileOperation operation, const std::string& path) {
  FakeLock lock(_mutex);
  ++_counts[static_cast<size_t>(operation)];
  for (auto fault = _faults.begin(); fault != _faults.end(); ++fault) {
    if (fault->operation != operation || path.find(fault->part) == std::string::npos) continue;
    const int error = fault->error;
    if (fault->countdown == 0) return error;
    if (--fault->countdown > 0) continue;
    _faults.erase(fault);
    return error;
  }
  return 0;
}

int FaultyFiles::open(const std::string& path, OpenMode mode, std::unique_ptr<File>& out) {
  if (const int error = strike(FileOperation::open, path)) return error;
  std::unique_ptr<File> opened;
  if (const int error = _to.open(path, mode, opened)) return error;
  out = std::make_unique<FaultyFile>(*this, path, std::move(opened));
  return 0;
}

int FaultyFiles::lock(const std::string& path, std::unique_ptr<FileLock>& out) {
  const int error = strike(FileOperation::lock, path);
  return error ? error : _to.lock(path, out);
}

int FaultyFiles::info(const std::string& path, FileInfo& out) {
  const int error = strike(FileOperation::info, path);
  return error ? error : _to.info(path, out);
}

int FaultyFiles::replace(const std::string& from, const std::string& to) {
  const int error = strike(FileOperation::replace, to);
  return error ? error : _to.replace(from, to);
}

int FaultyFiles::rename(const std::string& from, const std::string& to) {
  const int error = strike(FileOperation::rename, to);
  return error ? error : _to.rename(from, to);
}

int FaultyFiles::remove(const std::string& path) {
  const int error = strike(FileOperation::remove, path);
  return error ? error : _to.remove(path);
}

int FaultyFiles::makeDirectories(const std::string& path) {
  const int error = strike(FileOperation::makeDirectories, path);
  return error ? error : _to.makeDirectories(path);
}

int FaultyFiles::list(const std::string& directory, std::vector<DirectoryEntry>& out) {
  const int error = strike(FileOperation::list, directory);
  return error ? error : _to.list(directory, out);
}

int FaultyFiles::flushDirectory(const std::string& directory) {
  const int error = strike(FileOperation::flushDirectory, directory);
  return error ? error : _to.flushDirectory(directory);
}

}  // namespace korvane::platform
