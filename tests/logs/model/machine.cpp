#include "tests/logs/model/machine.h"

#include <cerrno>
#include <stdexcept>

#include "platform/fake/forwarding_files.h"

namespace korvane::log_model {

using platform::File;
using platform::FileInfo;
using platform::OpenMode;
using platform::resolved;

class ModelMachine::CoarseClock final : public platform::Clock {
 public:
  explicit CoarseClock(ModelMachine& machine) : _machine(machine) {}
  int64_t monotonicMs() override { return _machine.clock.monotonicMs(); }
  int64_t wallMs() override {
    if (_machine.grainMs == 0) return platform::ManualClock::kStartWallMs;
    return _machine.clock.wallMs() / _machine.grainMs * _machine.grainMs;
  }

 private:
  ModelMachine& _machine;
};

class ProcessFile final : public platform::ForwardingFile {
 public:
  ProcessFile(std::unique_ptr<File> to, ModelMachine& machine, uint64_t identity,
              std::shared_ptr<ModelMachine::Life> life)
      : ForwardingFile(std::move(to)), _machine(machine), _identity(identity), _life(life) {
    ++_machine._open[identity];
  }
  ~ProcessFile() override {
    --_machine._open[_identity];
    _machine.released(_identity);
  }
  int read(void* buffer, size_t size, size_t& got) override {
    got = 0;
    if (struck()) return EIO;
    const int error = _to->read(buffer, size, got);
    FileInfo now;
    if (_to->info(now) == 0 && static_cast<uint64_t>(_to->tell()) >= now.size)
      _machine._watch.readToItsEnd(_identity);
    return error;
  }
  int write(const void* bytes, size_t size) override {
    return struck() ? EIO : _to->write(bytes, size);
  }
  int seek(int64_t offset) override { return _life->dead ? EIO : _to->seek(offset); }
  int info(FileInfo& out) override {
    if (_life->dead) return EIO;
    const int error = _to->info(out);
    out.identity = _machine.shown(_identity);
    return error;
  }
  int truncate(uint64_t size) override { return struck() ? EIO : _to->truncate(size); }
  int flush() override { return struck() ? EIO : _to->flush(); }

 private:
  bool struck();
  ModelMachine& _machine;
  const uint64_t _identity;
  const std::shared_ptr<ModelMachine::Life> _life;
};

class ProcessFiles final : public platform::ForwardingFiles {
 public:
  ProcessFiles(platform::Files& to, ModelMachine& machine, std::shared_ptr<ModelMachine::Life> life)
      : ForwardingFiles(to), _machine(machine), _life(std::move(life)) {}
  static bool struck(ModelMachine::Life& life) {
    if (!life.dead && life.countdown > 0 && --life.countdown == 0) life.dead = true;
    return life.dead;
  }
  int open(const std::string& raw, OpenMode mode, std::unique_ptr<File>& out) override {
    if (struck(*_life)) return EIO;
    const std::string path = resolved(raw);
    std::unique_ptr<File> file;
    if (const int error = _to.open(path, mode, file)) return error;
    _machine._watch.opened(path);
    out =
        std::make_unique<ProcessFile>(std::move(file), _machine, _machine.identityOf(path), _life);
    return 0;
  }
  int lock(const std::string& path, std::unique_ptr<platform::FileLock>& out) override {
    return struck(*_life) ? EIO : _to.lock(resolved(path), out);
  }
  int info(const std::string& path, FileInfo& out) override {
    if (struck(*_life)) return EIO;
    const int error = _to.info(resolved(path), out);
    if (error == 0) out.identity = _machine.shown(out.identity);
    return error;
  }
  int replace(const std::string& from, const std::string& to) override {
    if (struck(*_life)) return EIO;
    const uint64_t lost = aboutToGo(to, "replaced");
    aboutToGo(from, "renamed");
    const int error = _to.replace(resolved(from), resolved(to));
    _machine.released(lost);
    return error;
  }
  int rename(const std::string& from, const std::string& to) override {
    if (struck(*_life)) return EIO;
    aboutToGo(from, "renamed");
    return _to.rename(resolved(from), resolved(to));
  }
  int remove(const std::string& path) override {
    if (struck(*_life)) return EIO;
    const uint64_t lost = aboutToGo(path, "deleted");
    const int error = _to.remove(resolved(path));
    _machine.released(lost);
    return error;
  }
  int makeDirectories(const std::string& path) override {
    return struck(*_life) ? EIO : _to.makeDirectories(resolved(path));
  }
  int list(const std::string& path, std::vector<platform::DirectoryEntry>& out) override {
    return struck(*_life) ? EIO : _to.list(resolved(path), out);
  }
  int flushDirectory(const std::string& path) override {
    return struck(*_life) ? EIO : _to.flushDirectory(resolved(path));
  }

 private:
  uint64_t aboutToGo(const std::string& path, const char* how) {
    const uint64_t identity = _machine.identityOf(resolved(path));
    if (identity) _machine._watch.removing(identity, how);
    return identity;
  }
  ModelMachine& _machine;
  const std::shared_ptr<ModelMachine::Life> _life;
};

bool ProcessFile::struck() {
  return ProcessFiles::struck(*_life);
}

ModelMachine::ModelMachine(DiskWatch& watch)
    : _watch(watch), _coarse(std::make_unique<CoarseClock>(*this)), _disk(*_coarse) {
  _life->dead = true;
  _disk.makeDirectories(installRoot() + "/IPS");
  _disk.makeDirectories(installRoot() + "/IDS/bin");
}

platform::Files& ModelMachine::files() {
  if (_handedOut.empty()) beginProcess();
  return *_handedOut.back();
}

void ModelMachine::beginProcess() {
  _life = std::make_shared<Life>();
  _handedOut.push_back(std::make_unique<ProcessFiles>(_disk, *this, _life));
}

void ModelMachine::killAt(int calls) {
  _life->countdown = calls;
  if (calls == 0) _life->dead = true;
}

uint64_t ModelMachine::put(const std::string& path, const std::string& bytes) {
  const uint64_t lost = identityOf(path);
  _disk.put(path, bytes);
  if (lost) released(lost);
  return identityOf(path);
}

void ModelMachine::append(const std::string& path, const std::string& bytes) {
  std::unique_ptr<File> file;
  if (_disk.open(path, OpenMode::append, file) != 0 || file->write(bytes.data(), bytes.size()) != 0)
    throw std::logic_error("the disk in memory refuses " + path);
}

void ModelMachine::truncate(const std::string& path, const std::string& bytes) {
  std::unique_ptr<File> file;
  if (_disk.open(path, OpenMode::create, file) != 0 || file->write(bytes.data(), bytes.size()) != 0)
    throw std::logic_error("the disk in memory refuses " + path);
}

void ModelMachine::remove(const std::string& path) {
  const uint64_t lost = identityOf(path);
  _disk.remove(path);
  if (lost) released(lost);
}

uint64_t ModelMachine::size(const std::string& path) {
  FileInfo info;
  return _disk.info(path, info) == 0 ? info.size : 0;
}

bool ModelMachine::exists(const std::string& path) {
  return identityOf(path) != 0;
}

uint64_t ModelMachine::identityOf(const std::string& path) {
  FileInfo info;
  return _disk.info(path, info) == 0 ? info.identity : 0;
}

uint64_t ModelMachine::shown(uint64_t identity) {
  if (!reuseIdentities) return identity;
  const auto known = _shown.find(identity);
  if (known != _shown.end()) return known->second;
  const uint64_t number = _free.empty() ? 100 + _shown.size() : *_free.begin();
  _free.erase(number);
  return _shown[identity] = number;
}

void ModelMachine::released(uint64_t identity) {
  if (!reuseIdentities || !identity || _open[identity] > 0 || !_shown.contains(identity)) return;
  for (const std::string& path : _disk.paths())
    if (identityOf(path) == identity) return;
  _free.insert(_shown[identity]);
  _shown.erase(identity);
}

}  // namespace korvane::log_model
