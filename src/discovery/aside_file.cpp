#include "discovery/aside_file.h"

#include "platform/files.h"
#include "platform/paths.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr size_t kBufferBytes = 64 * 1024;

}  // namespace

AsideFile::AsideFile(platform::Files& files, std::string path)
    : _files(files), _path(std::move(path)), _aside(_path + ".new-" + files.freshName()) {
  const std::string own = platform::fileNameOf(_path);
  platform::removeUnfinished(files, platform::directoryOf(_path),
                             [&](std::string_view target) { return target == own; });
  _error = files.open(_aside, platform::OpenMode::createNew, _file);
}

AsideFile::~AsideFile() {
  if (_placed || !_file) return;
  _file.reset();
  ignoreResult(_files.remove(_aside));
}

void AsideFile::add(std::string_view text) {
  if (_error) return;
  _buffer += text;
  if (_buffer.size() >= kBufferBytes) drain();
}

void AsideFile::drain() {
  if (!_error && !_buffer.empty()) _error = _file->write(_buffer.data(), _buffer.size());
  _buffer.clear();
}

int AsideFile::commit() {
  drain();
  if (!_error) _error = _file->flush();
  if (_error) return _error;
  _file.reset();
  _error = _files.replace(_aside, _path);
  if (_error) ignoreResult(_files.remove(_aside));
  _placed = true;
  if (!_error) _error = _files.flushDirectory(platform::directoryOf(_path));
  return _error;
}

}  // namespace korvane
