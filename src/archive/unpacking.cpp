#include "archive/unpacking.h"

#include <cerrno>
#include <set>

#include "platform/files.h"
#include "platform/paths.h"
#include "util/ignore_result.h"

namespace korvane::archive {

namespace {

constexpr uint64_t kDiskBlock = 4096;  // what a file takes beyond its bytes, at most

}  // namespace

Unpacking::Unpacking(platform::Files& files, std::string target, std::function<bool()> cancelled)
    : _files(files),
      _target(std::move(target)),
      _staging(_target + ".unpacking"),
      _cancelled(std::move(cancelled)) {}

Unpacking::~Unpacking() {
  // What stays is removed before the next unpacking.
  ignoreResult(platform::removeTree(_files, _staging));
}

bool Unpacking::failed(const char* operation, const std::string& path, int error,
                       Refusal& refusal) const {
  if (error == 0) return false;
  refusal = {Fault::fileOperation, _archive, path, std::string("cannot ") + operation, error};
  return true;
}

std::string Unpacking::pathBelow(const std::string& root, const std::string& name) const {
  std::string path = platform::joinPath(_files, {root, name});
  for (size_t at = root.size(); at < path.size(); ++at) {
    if (path[at] == '/') path[at] = _files.separator();
  }
  return path;
}

bool Unpacking::stage(ZipArchive& zip, Refusal& refusal) {
  _archive = zip.name();
  if (failed("clear", _staging, platform::removeTree(_files, _staging), refusal)) return false;
  std::set<std::string> directories;
  for (const Entry& entry : zip.entries()) {
    for (size_t at = entry.name.find('/'); at != std::string::npos;
         at = entry.name.find('/', at + 1))
      directories.insert(entry.name.substr(0, at));
    if (!entry.isDirectory()) _fileNames.push_back(entry.name);
  }
  _directoryNames.assign(directories.begin(), directories.end());
  if (!makeDirectories(_staging, refusal) || !hasRoom(zip, refusal)) return false;
  for (const Entry& entry : zip.entries()) {
    if (!entry.isDirectory() && !stageFile(zip, entry, refusal)) return false;
  }
  return true;
}

bool Unpacking::hasRoom(const ZipArchive& zip, Refusal& refusal) {
  uint64_t needed = kKeptFree, free = 0;
  for (const Entry& entry : zip.entries()) needed += entry.size + kDiskBlock;
  // A disk that does not tell is found full by writing.
  if (_files.freeBytes(_staging, free) != 0 || free >= needed) return true;
  refusal = {Fault::fileOperation, _archive, _staging,
             "the disk has " + std::to_string(free >> 20) + " MiB free, " +
                 std::to_string(needed >> 20) + " are needed",
             ENOSPC};
  return false;
}

bool Unpacking::makeDirectories(const std::string& root, Refusal& refusal) {
  if (failed("make directory", root, _files.makeDirectories(root), refusal)) return false;
  for (const std::string& name : _directoryNames) {
    const std::string path = pathBelow(root, name);
    if (failed("make directory", path, _files.makeDirectories(path), refusal)) return false;
  }
  return true;
}

bool Unpacking::flushDirectories(const std::string& root, Refusal& refusal) {
  if (failed("flush directory", root, _files.flushDirectory(root), refusal)) return false;
  for (const std::string& name : _directoryNames) {
    const std::string path = pathBelow(root, name);
    if (failed("flush directory", path, _files.flushDirectory(path), refusal)) return false;
  }
  return true;
}

bool Unpacking::stageFile(ZipArchive& zip, const Entry& entry, Refusal& refusal) {
  const std::string path = pathBelow(_staging, entry.name);
  std::unique_ptr<platform::File> file;
  if (failed("open", path, _files.open(path, platform::OpenMode::createNew, file), refusal))
    return false;
  const auto sink = [this, &file](std::string_view piece) {
    return _cancelled && _cancelled() ? ECANCELED : file->write(piece.data(), piece.size());
  };
  if (!zip.read(entry, sink, refusal)) return false;
  return !failed("flush", path, file->flush(), refusal);
}

bool Unpacking::targetIsFree(const std::string& name, Refusal& refusal) {
  const std::string path = pathBelow(_target, name);
  platform::FileInfo info;
  if (_files.info(path, info) != 0 || !info.isDirectory) return true;
  return !failed("replace directory", path, EISDIR, refusal);
}

bool Unpacking::commit(Refusal& refusal) {
  for (const std::string& name : _fileNames) {
    if (!targetIsFree(name, refusal)) return false;
  }
  if (!makeDirectories(_target, refusal)) return false;
  for (const std::string& name : _fileNames) {
    const std::string path = pathBelow(_target, name);
    const int error = _files.replace(pathBelow(_staging, name), path);
    if (failed("put in place", path, error, refusal)) return false;
  }
  return flushDirectories(_target, refusal);
}

bool unpack(platform::Files& files, const std::string& archiveName, std::string_view bytes,
            const std::string& target, const Limits& limits, Refusal& refusal) {
  ZipArchive zip(archiveName, bytes, limits);
  Unpacking unpacking(files, target);
  return zip.open(refusal) && unpacking.stage(zip, refusal) && unpacking.commit(refusal);
}

}  // namespace korvane::archive
