#include "platform/fake/recording_files.h"

#include <algorithm>

#include "platform/fake/manual_clock.h"
#include "platform/paths.h"
#include "util/ignore_result.h"

namespace korvane::platform {

struct RecordingFiles::Entry {
  enum class Kind { create, write, truncate, flush, move, remove, makeDirectories, flushDirectory };
  Kind kind;
  std::string path;
  uint64_t file = 0;  // identity, for what concerns a file's content
  uint64_t offset = 0;
  std::string bytes;
  std::string to;
};

namespace {

using Entry = RecordingFiles::Entry;
using Kind = RecordingFiles::Entry::Kind;
using Names = std::map<std::string, uint64_t>;

constexpr const char* kKindNames[] = {"create", "write",  "truncate",         "flush",
                                      "move",   "remove", "make directories", "flush directory"};
constexpr const char* kDataLossNames[] = {"all data kept", "unflushed data lost", "last write torn",
                                          "unflushed data zeroed", "only the last write kept"};
constexpr const char* kNameLossNames[] = {"", ", unflushed names lost",
                                          ", of a directory's changes only the last kept"};

// A new file is called by the one that it is to become, as each of its kind.
std::string named(const std::string& path) {
  const std::string name = fileNameOf(path);
  const std::string target(unfinishedTarget(name));
  return target.empty() ? path : path.substr(0, path.size() - name.size()) + target + ".new";
}

bool isFlush(const Entry& entry) {
  return entry.kind == Kind::flush || entry.kind == Kind::flushDirectory;
}

class RecordedFile final : public ForwardingFile {
 public:
  RecordedFile(RecordingFiles& owner, std::string path, OpenMode mode, std::unique_ptr<File> to)
      : ForwardingFile(std::move(to)), _owner(owner), _path(std::move(path)), _mode(mode) {}

  int write(const void* bytes, size_t size) override {
    FileInfo before;
    ignoreResult(_to->info(before));
    const uint64_t offset =
        _mode == OpenMode::append ? before.size : static_cast<uint64_t>(_to->tell());
    const int error = _to->write(bytes, size);
    if (!error)
      _owner.record({Kind::write,
                     _path,
                     before.identity,
                     offset,
                     std::string(static_cast<const char*>(bytes), size),
                     {}});
    return error;
  }

  int truncate(uint64_t size) override {
    return recorded(_to->truncate(size), Kind::truncate, size);
  }
  int flush() override { return recorded(_to->flush(), Kind::flush, 0); }

 private:
  int recorded(int error, Kind kind, uint64_t offset) {
    FileInfo info;
    ignoreResult(_to->info(info));
    if (!error) _owner.record({kind, _path, info.identity, offset, {}, {}});
    return error;
  }

  RecordingFiles& _owner;
  const std::string _path;
  const OpenMode _mode;
};

void applyTo(std::string& content, const Entry& entry, size_t size) {
  if (entry.kind == Kind::truncate) {
    content.resize(static_cast<size_t>(entry.offset));
    return;
  }
  const auto offset = static_cast<size_t>(entry.offset);
  if (content.size() < offset + size) content.resize(offset + size);
  content.replace(offset, size, entry.bytes, 0, size);
}

// A file's content: what is sure, and the changes that are not.
struct Content {
  std::string sure;
  std::vector<const Entry*> unsure;

  void flush() {
    sure = after(DataLoss::none);
    unsure.clear();
  }

  std::string after(DataLoss loss) const {
    std::string content = sure;
    if (loss == DataLoss::all || unsure.empty()) return content;
    const Entry& last = *unsure.back();
    if (loss == DataLoss::lastOnly) {
      applyTo(content, last, last.bytes.size());
      return content;
    }
    for (const Entry* entry : unsure) {
      Entry applied = *entry;
      if (loss == DataLoss::zeroed) applied.bytes.assign(applied.bytes.size(), '\0');
      const bool torn = loss == DataLoss::torn && entry == &last;
      applyTo(content, applied, torn ? applied.bytes.size() / 2 : applied.bytes.size());
    }
    return content;
  }
};

// The last change of a directory that is not sure.
struct NameChange {
  std::string gone, made;  // either may be empty
  uint64_t file = 0;       // what `made` names
};

// The disk as the journal builds it up.
struct Replay {
  std::map<uint64_t, Content> contents;
  Names names, sureNames;
  std::map<std::string, NameChange> lastChanges;  // by directory
  std::vector<std::string> directories;

  void apply(const Entry& entry) {
    switch (entry.kind) {
      case Kind::create:
        names[entry.path] = entry.file;
        contents[entry.file];
        lastChanges[directoryOf(entry.path)] = {"", entry.path, entry.file};
        break;
      case Kind::write:
      case Kind::truncate:
        contents[entry.file].unsure.push_back(&entry);
        break;
      case Kind::flush:
        contents[entry.file].flush();
        break;
      case Kind::move:
        move(entry);
        break;
      case Kind::remove:
        names.erase(entry.path);
        lastChanges[directoryOf(entry.path)] = {entry.path, "", 0};
        break;
      case Kind::makeDirectories:
        directories.push_back(entry.path);
        break;
      case Kind::flushDirectory:
        makeSure(entry.path);
        break;
    }
  }

  void move(const Entry& entry) {
    const uint64_t file = names[entry.path];
    names.erase(entry.path);
    names[entry.to] = file;
    lastChanges[directoryOf(entry.path)] = {entry.path, "", 0};
    NameChange& arrival = lastChanges[directoryOf(entry.to)];
    if (arrival.gone != entry.path) arrival.gone.clear();
    arrival.made = entry.to;
    arrival.file = file;
  }

  Names after(NameLoss loss) const {
    if (loss == NameLoss::none) return names;
    Names kept = sureNames;
    if (loss == NameLoss::all) return kept;
    for (const auto& [directory, change] : lastChanges) {
      kept.erase(change.gone);
      if (!change.made.empty()) kept[change.made] = change.file;
    }
    return kept;
  }

  void makeSure(const std::string& directory) {
    lastChanges.erase(directory);
    const auto within = [&](const auto& named) { return directoryOf(named.first) == directory; };
    std::erase_if(sureNames, within);
    for (const auto& named : names)
      if (within(named)) sureNames.insert(named);
  }
};

}  // namespace

RecordingFiles::RecordingFiles(MemoryFiles& to)
    : ForwardingFiles(to), _memory(to), _startDirectories(to.directories()) {
  for (const std::string& path : to.paths()) _start[path] = {identityOf(path), to.content(path)};
}

RecordingFiles::~RecordingFiles() = default;

uint64_t RecordingFiles::identityOf(const std::string& path) {
  FileInfo info;
  return _memory.info(path, info) == 0 ? info.identity : 0;
}

void RecordingFiles::record(Entry entry) {
  FakeLock lock(_mutex);
  _journal.push_back(std::move(entry));
}

size_t RecordingFiles::size() {
  FakeLock lock(_mutex);
  return _journal.size();
}

std::string RecordingFiles::describe(size_t entry) {
  FakeLock lock(_mutex);
  const Entry& at = _journal.at(entry);
  std::string text = kKindNames[static_cast<int>(at.kind)] + (" " + named(at.path));
  if (!at.to.empty()) text += " to " + at.to;
  if (at.kind == Kind::write)
    text += " " + std::to_string(at.bytes.size()) + " bytes at " + std::to_string(at.offset);
  return text;
}

size_t RecordingFiles::flushes() {
  FakeLock lock(_mutex);
  return static_cast<size_t>(std::count_if(_journal.begin(), _journal.end(), isFlush));
}

std::string RecordingFiles::describeFlush(size_t flush) {
  size_t at = 0;
  {
    FakeLock lock(_mutex);
    for (; at < _journal.size(); ++at)
      if (isFlush(_journal[at]) && flush-- == 0) break;
  }
  return describe(at);
}

void RecordingFiles::leaveOutFlush(size_t flush) {
  FakeLock lock(_mutex);
  _leftOut = flush;
}

void RecordingFiles::crash(size_t entries, DataLoss data, NameLoss names, MemoryFiles& disk) {
  FakeLock lock(_mutex);
  Replay replay;
  replay.directories = _startDirectories;
  for (const auto& [path, file] : _start) {
    replay.names[path] = replay.sureNames[path] = file.first;
    replay.contents[file.first].sure = file.second;
  }
  size_t flush = 0;
  for (size_t i = 0; i < std::min(entries, _journal.size()); ++i)
    if (!isFlush(_journal[i]) || flush++ != _leftOut) replay.apply(_journal[i]);
  for (const std::string& directory : replay.directories)
    ignoreResult(disk.makeDirectories(directory));
  const Names survived = replay.after(names);
  for (const auto& [path, file] : survived) disk.put(path, replay.contents[file].after(data));
  for (const auto& [path, file] : survived) disk.identify(path, file, timeOf(path, file));
}

// When a file was changed last; of one that has lost its name, as far as it was seen.
int64_t RecordingFiles::timeOf(const std::string& path, uint64_t file) {
  FileInfo info;
  if (_memory.info(path, info) == 0 && info.identity == file) return info.modifiedNs;
  const auto found = _lastTimes.find(file);
  return found == _lastTimes.end() ? 0 : found->second;
}

void RecordingFiles::noteLastTime(const std::string& path) {
  FileInfo info;
  if (_memory.info(path, info) != 0) return;
  FakeLock lock(_mutex);
  _lastTimes[info.identity] = info.modifiedNs;
}

void RecordingFiles::forEachCrash(const Check& check) {
  Seen seen;
  const size_t total = size();
  for (size_t entries = 0; entries <= total; ++entries) forEachCrashAfter(entries, seen, check);
}

void RecordingFiles::forEachCrashAfter(size_t entries, const Check& check) {
  Seen seen;
  forEachCrashAfter(entries, seen, check);
}

void RecordingFiles::forEachCrashAfter(size_t entries, Seen& seen, const Check& check) {
  const std::string after = "after entry " + std::to_string(entries) +
                            (entries ? " (" + describe(entries - 1) + "), " : ", ");
  for (const DataLoss data : kDataLosses)
    for (const NameLoss names : kNameLosses) {
      ManualClock clock;
      MemoryFiles disk(clock);
      crash(entries, data, names, disk);
      std::map<std::string, std::string> contents;
      for (const std::string& path : disk.paths()) contents[path] = disk.content(path);
      if (!seen.insert(std::move(contents)).second) continue;
      check(
          after + kDataLossNames[static_cast<int>(data)] + kNameLossNames[static_cast<int>(names)],
          disk);
    }
}

int RecordingFiles::open(const std::string& path, OpenMode mode, std::unique_ptr<File>& out) {
  const bool existed = identityOf(path) != 0;
  std::unique_ptr<File> opened;
  if (const int error = _to.open(path, mode, opened)) return error;
  const uint64_t identity = identityOf(path);
  if (!existed)
    record({Kind::create, path, identity, 0, {}, {}});
  else if (mode == OpenMode::create)
    record({Kind::truncate, path, identity, 0, {}, {}});
  out = std::make_unique<RecordedFile>(*this, path, mode, std::move(opened));
  return 0;
}

int RecordingFiles::lock(const std::string& path, std::unique_ptr<FileLock>& out) {
  const bool existed = identityOf(path) != 0;
  const int error = _to.lock(path, out);
  if (!error && !existed) record({Kind::create, path, identityOf(path), 0, {}, {}});
  return error;
}

int RecordingFiles::replace(const std::string& from, const std::string& to) {
  noteLastTime(to);
  const int error = _to.replace(from, to);
  if (!error && from != to) record({Kind::move, from, 0, 0, {}, to});
  return error;
}

int RecordingFiles::rename(const std::string& from, const std::string& to) {
  const int error = _to.rename(from, to);
  if (!error) record({Kind::move, from, 0, 0, {}, to});
  return error;
}

int RecordingFiles::remove(const std::string& path) {
  noteLastTime(path);
  FileInfo info;
  const bool directory = _to.info(path, info) == 0 && info.isDirectory;
  const int error = _to.remove(path);
  if (!error && !directory) record({Kind::remove, path, 0, 0, {}, {}});
  return error;
}

int RecordingFiles::makeDirectories(const std::string& path) {
  const int error = _to.makeDirectories(path);
  if (!error) record({Kind::makeDirectories, path, 0, 0, {}, {}});
  return error;
}

int RecordingFiles::flushDirectory(const std::string& directory) {
  const int error = _to.flushDirectory(directory);
  if (!error) record({Kind::flushDirectory, directory, 0, 0, {}, {}});
  return error;
}

}  // namespace korvane::platform
