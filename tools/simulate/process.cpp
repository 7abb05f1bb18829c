#include "simulate/process.h"

#include <cerrno>

#include "platform/error_codes.h"

namespace korvane::simulation {

using platform::File;
using platform::FileInfo;
using platform::FileLock;
using platform::OpenMode;
using platform::resolved;

class ProcessFile final : public platform::ForwardingFile {
 public:
  ProcessFile(ProcessFiles& owner, std::string path, OpenMode mode, std::unique_ptr<File> to)
      : ForwardingFile(std::move(to)), _owner(owner), _path(std::move(path)), _mode(mode) {
    ++owner._line.handles;
  }
  ~ProcessFile() override { --_owner._line.handles; }

  int read(void* buffer, size_t size, size_t& got) override {
    got = 0;
    return _owner._line.call("read " + _path) ? EIO : _to->read(buffer, size, got);
  }
  int write(const void* bytes, size_t size) override {
    if (_owner._line.call("write " + _path)) return EIO;
    const DiskTrouble trouble = _owner._trouble(_mode, "write " + _path);
    if (trouble.torn) ignoreResult(_to->write(bytes, size / 2));
    return trouble.error ? trouble.error : _to->write(bytes, size);
  }
  int seek(int64_t offset) override {
    return _owner._line.call("seek " + _path) ? EIO : _to->seek(offset);
  }
  int info(FileInfo& out) override {
    return _owner._line.call("info " + _path) ? EIO : _to->info(out);
  }
  int truncate(uint64_t size) override {
    const int error = _owner.change("truncate " + _path);
    return error ? error : _to->truncate(size);
  }
  int flush() override {
    const int error = _owner.change("flush " + _path);
    return error ? error : _to->flush();
  }

 private:
  ProcessFiles& _owner;
  const std::string _path;
  const OpenMode _mode;
};

class ProcessLock final : public FileLock {
 public:
  ProcessLock(ProcessFiles& owner, std::unique_ptr<FileLock> to)
      : _owner(owner), _to(std::move(to)) {
    _owner._locks.insert(this);
    ++owner._line.handles;
  }
  ~ProcessLock() override {
    _owner._locks.erase(this);
    --_owner._line.handles;
  }
  void release() { _to.reset(); }

 private:
  ProcessFiles& _owner;
  std::unique_ptr<FileLock> _to;
};

int ProcessFiles::change(const std::string& what) {
  return _line.call(what) ? EIO : _trouble(OpenMode::readWrite, what).error;
}

int ProcessFiles::open(const std::string& path, OpenMode mode, std::unique_ptr<File>& out) {
  if (_line.call("open " + path)) return EIO;
  if (const int error = _trouble(mode, "open " + path).error) return error;
  std::unique_ptr<File> file;
  if (const int error = _to.open(resolved(path), mode, file)) return error;
  out = std::make_unique<ProcessFile>(*this, path, mode, std::move(file));
  return 0;
}

int ProcessFiles::lock(const std::string& path, std::unique_ptr<FileLock>& out) {
  if (_line.call("lock " + path)) return EIO;
  std::unique_ptr<FileLock> lock;
  if (const int error = _to.lock(resolved(path), lock)) return error;
  out = std::make_unique<ProcessLock>(*this, std::move(lock));
  return 0;
}

void ProcessFiles::releaseLocks() {
  for (ProcessLock* lock : _locks) lock->release();
}

int ProcessFiles::info(const std::string& path, FileInfo& out) {
  return _line.call("info " + path) ? EIO : _to.info(resolved(path), out);
}
int ProcessFiles::replace(const std::string& from, const std::string& to) {
  const int error = change("replace " + to);
  return error ? error : _to.replace(resolved(from), resolved(to));
}
int ProcessFiles::rename(const std::string& from, const std::string& to) {
  const int error = change("rename to " + to);
  return error ? error : _to.rename(resolved(from), resolved(to));
}
int ProcessFiles::remove(const std::string& path) {
  const int error = change("remove " + path);
  return error ? error : _to.remove(resolved(path));
}
int ProcessFiles::makeDirectories(const std::string& path) {
  const int error = change("make directories " + path);
  return error ? error : _to.makeDirectories(resolved(path));
}
int ProcessFiles::list(const std::string& path, std::vector<platform::DirectoryEntry>& out) {
  return _line.call("list " + path) ? EIO : _to.list(resolved(path), out);
}
int ProcessFiles::flushDirectory(const std::string& path) {
  const int error = change("flush directory " + path);
  return error ? error : _to.flushDirectory(resolved(path));
}

uint32_t ProcessRegistry::readString(std::string_view key, std::string_view name, STRING& out) {
  return _line.call("registry") ? platform::kErrorAccessDenied : _to.readString(key, name, out);
}
uint32_t ProcessRegistry::readDword(std::string_view key, std::string_view name, uint32_t& out) {
  return _line.call("registry") ? platform::kErrorAccessDenied : _to.readDword(key, name, out);
}
uint32_t ProcessRegistry::writeString(std::string_view key, std::string_view name,
                                      const STRING& value) {
  return _line.call("registry write " + std::string(name)) ? platform::kErrorAccessDenied
                                                           : _to.writeString(key, name, value);
}
uint32_t ProcessRegistry::writeDword(std::string_view key, std::string_view name, uint32_t value) {
  return _line.call("registry write " + std::string(name)) ? platform::kErrorAccessDenied
                                                           : _to.writeDword(key, name, value);
}
uint32_t ProcessRegistry::createKey(std::string_view key) {
  if (_line.call("registry key") || _isProtected(key)) return platform::kErrorAccessDenied;
  return _to.createKey(key);
}
uint32_t ProcessRegistry::deleteKey(std::string_view key) {
  return _line.call("registry key") ? platform::kErrorAccessDenied : _to.deleteKey(key);
}

std::unique_ptr<platform::NativeThread> ProcessThreads::createThread(uint32_t stack,
                                                                     std::function<void()> body) {
  ++_line.threads;
  auto thread = _to.createThread(stack, [this, body = std::move(body)]() mutable {
    body();
    body = nullptr;  // what it owns goes with it
    --_line.threads;
  });
  if (!thread) --_line.threads;
  return thread;
}

uint32_t ProcessChildren::start(const std::string& program, const std::string& arguments,
                                std::unique_ptr<platform::Process>& out) {
  if (_line.call("start " + program)) return platform::kErrorAccessDenied;
  const uint32_t refused = _refusal();
  return refused ? refused : _to.start(program, arguments, out);
}

}  // namespace korvane::simulation
