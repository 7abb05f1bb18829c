#include "logs/file_log_source.h"

#include <algorithm>

#include "config/log_settings.h"
#include "eventlog/event_log.h"
#include "logs/log_mark.h"
#include "platform/files.h"
#include "util/errors.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kOpenTag[] = "FileLogSource::openLog";
constexpr int64_t kUtf16MarkBytes = 2;
// How far before the saved offset the resumption test looks.
constexpr int64_t kResumptionLookBack = 100;

}  // namespace

FileLogSource::FileLogSource(LogType type, platform::Files& files, const LogSettings& settings)
    : _files(files), _type(type), _settings(settings) {
  if (static_cast<int>(type) > HIDS_RT_LOG) return;
  _pointer = std::make_unique<FileLogPointer>(files, settings.getLogPointerFileName(type));
  _keptPosition = _pointer->position();
  if (const auto& saved = _pointer->savedAccount()) _head = saved->head;
}

std::optional<StreamState> FileLogSource::savedAccount() const {
  if (!_pointer || !_pointer->savedAccount()) return {};
  return _pointer->savedAccount()->state;
}

void FileLogSource::setAccount(const StreamState& state) {
  _state = state;
}

void FileLogSource::attachAccount() {
  if (_state) _pointer->setAccount({*_state, _head});
}

// The first bytes of a short log change with it until there are enough.
void FileLogSource::noteHead(int64_t position) {
  const auto known = static_cast<int64_t>(_head.bytes);
  if (!_file || known >= std::min(position, LogHead::kMaxBytes)) return;
  const int64_t readTo = _reader.position();
  _head = headOf(*_file, position);
  _reader.seek(readTo);
}

FileLogSource::~FileLogSource() {
  closeLog();
}

void FileLogSource::openLog() {
  if (_file || !_pointer) return;
  const int64_t offset = _pointer->position();
  const STRING name = _pointer->getCurrentLogName();
  if (name.empty()) {
    eventlog::trace(kOpenTag, "Current log file name not initialized in Log Pointer Object!!");
  } else if (openNamed(name, offset)) {
    return;
  }
  openCurrent(offset);
}

bool FileLogSource::openPointersLog() {
  if (_file || !_pointer) return _file != nullptr;
  const STRING name = _pointer->getCurrentLogName();
  if (openNamed(name, _pointer->position())) return true;
  reportOpenFailure(name);
  return false;
}

bool FileLogSource::openNamed(const STRING& name, int64_t offset) {
  std::unique_ptr<platform::File> file;
  if (_files.open(name.toUtf8(), platform::OpenMode::read, file) != 0) {
    eventlog::trace(kOpenTag, "File open error : %s", name);
    return false;
  }
  eventlog::trace(kOpenTag, "Event Log file name : %s", name);
  useFile(std::move(file), name);
  _isAnotherLog = _head.bytes > 0 && headOf(*_file, static_cast<int64_t>(_head.bytes)) != _head;
  // The mark is looked for at the beginning.
  ignoreResult(_file->seek(0));
  startReading(detectUtf16(), offset);
  _markAwaited = _reader.position() < kUtf16MarkBytes;
  return true;
}

void FileLogSource::openCurrent(int64_t offset) {
  const STRING path = _settings.getCurrentLogFile(_type);
  if (path.empty()) {
    eventlog::trace(
        kOpenTag,
        "Fatal Error: KAVRTEvent.csv file not initialized in agent configuration structure.");
    return;
  }
  std::unique_ptr<platform::File> file;
  if (_files.open(path.toUtf8(), platform::OpenMode::read, file) != 0) {
    reportOpenFailure(path);
    return;
  }
  useFile(std::move(file), path);
  offset = offsetThatApplies(offset);
  if (_pointer->getCurrentLogName() != path) _head = {};
  _pointer->setCurrentLogName(path);
  _moveOutstanding = true;
  startReading(detectUtf16(), offset);
}

void FileLogSource::useFile(std::unique_ptr<platform::File> file, const STRING& name) {
  _file = std::move(file);
  _openPath = name.toUtf8();
  _reportedPath.clear();
  _markAwaited = _isAnotherLog = false;
  platform::FileInfo info;
  _identity = _file->info(info) == 0 ? info.identity : 0;
}

// 0 when nothing can be read near the offset; the file's position is behind the line that
// was tried.
int64_t FileLogSource::offsetThatApplies(int64_t offset) {
  // Before the file's beginning nothing is moved: a fresh file is at its beginning.
  ignoreResult(_file->seek(offset - kResumptionLookBack));
  const bool utf16 = detectUtf16();
  _reader.attach(_file.get(), utf16, _file->tell());
  SourceLine line;
  const int error = _reader.next(line);
  // The reader moves the file itself before it reads on.
  ignoreResult(_file->seek(_reader.position()));
  if (error != 0 || line.length > 0) return offset;
  _pointer->setOffset(0);
  return 0;
}

bool FileLogSource::detectUtf16() {
  unsigned char mark[kUtf16MarkBytes];
  size_t got = 0;
  if (_file->read(mark, sizeof mark, got) != 0 || got < sizeof mark) return false;
  if (mark[0] == 0xFF && mark[1] == 0xFE) return true;
  // As above.
  ignoreResult(_file->seek(0));
  return false;
}

// A UTF-16LE log is read from behind its mark and from whole code units.
void FileLogSource::startReading(bool utf16, int64_t offset) {
  if (offset < 0) offset = 0;
  if (utf16) offset = offset < kUtf16MarkBytes ? kUtf16MarkBytes : offset & ~int64_t{1};
  _reader.attach(_file.get(), utf16, offset);
}

// A log that was opened before its writer put the mark there shows its encoding when it has begun.
void FileLogSource::awaitMark() {
  platform::FileInfo info;
  _markAwaited = _reader.position() < kUtf16MarkBytes;
  if (!_markAwaited || _file->info(info) != 0 || static_cast<int64_t>(info.size) < kUtf16MarkBytes)
    return;
  _markAwaited = false;
  const int64_t position = _reader.position();
  // As above.
  ignoreResult(_file->seek(0));
  startReading(detectUtf16(), position);
}

void FileLogSource::reportOpenFailure(const STRING& path) {
  eventlog::trace(kOpenTag, "Fatal Error - Unable to open log file : %s", path);
  if (_reportedPath == path) return;
  _reportedPath = path;
  eventlog::event(EventId::logNotOpened, "FileLogSource", {path});
}

void FileLogSource::closeLog() {
  _reader.detach();
  _file.reset();
}

bool FileLogSource::readLine(SourceLine& line) {
  if (!_file) openLog();
  if (!_file) return false;
  if (_markAwaited) awaitMark();
  const int error = _reader.next(line);
  _pointer->setPosition(_reader.position());
  if (error != 0) throw FileError(error, "readLineBuffered", "Error reading file");
  return line.length > 0;
}

int FileLogSource::readRecord(STRING& line) {
  SourceLine read;
  if (!readLine(read)) return 0;
  line += STRING(std::string_view(read.text, read.size));
  return static_cast<int>(read.length);
}

void FileLogSource::goTo(int64_t position) {
  _reader.seek(position);
  _pointer->setPosition(position);
}

bool FileLogSource::isEOF() {
  platform::FileInfo info;
  if (!_file || _file->info(info) != 0) return true;
  return static_cast<int64_t>(info.size) <= _reader.position();
}

void FileLogSource::savePointer() {
  if (!_pointer) return;
  _pointer->writePointer();
  _keptPosition = _pointer->position();
}

void FileLogSource::savePointerAt(int64_t position, bool durably) {
  if (!_pointer) return;
  noteHead(position);
  attachAccount();
  const int64_t readTo = _pointer->position();
  _pointer->setPosition(position);
  if (durably)
    _pointer->writePointerDurably();
  else
    _pointer->writePointer();
  _pointer->setPosition(readTo);
  _keptPosition = position;
}

void FileLogSource::keepDurably() {
  try {
    settleMove();
  } catch (const AgentError&) {
  }
}

void FileLogSource::switchToLog(const STRING& path) {
  if (!_pointer) return;
  moveDurablyTo(path, 0);
  openLog();
}

void FileLogSource::moveDurablyTo(const STRING& path, int64_t offset) {
  closeLog();
  _head = {};
  _pointer->setCurrentLogName(path);
  _pointer->setPosition(offset);
  _moveOutstanding = true;
  _keptPosition = offset;
  settleMove();
}

void FileLogSource::settleMove() {
  if (!_moveOutstanding) return;
  const int64_t readTo = _pointer->position();
  _pointer->setPosition(_keptPosition);
  attachAccount();
  _pointer->writePointerDurably();
  _pointer->setPosition(readTo);
  _moveOutstanding = false;
}

int64_t FileLogSource::size() const {
  platform::FileInfo info;
  return _file && _file->info(info) == 0 ? static_cast<int64_t>(info.size) : 0;
}

FileLogSource::FileState FileLogSource::stateAtEnd() {
  platform::FileInfo open, named;
  if (!_file || _file->info(open) != 0) return FileState::same;
  const auto size = static_cast<int64_t>(open.size);
  if (size < _reader.position()) return FileState::shrunken;
  if (size >= _reader.position() + _reader.unit()) return FileState::grown;
  const bool replaced = _files.info(_openPath, named) == 0 && named.identity != open.identity;
  return replaced ? FileState::replaced : FileState::same;
}

// Reading goes on where it was.
STRING FileLogSource::mark() {
  if (!_file) return {};
  const int64_t position = _reader.position();
  const STRING mark = logMark(getCurrentLogName(), *_file, position);
  _reader.seek(position);
  return mark;
}

NextLogs::Place FileLogSource::place() {
  if (!_file) return {};
  const int64_t position = _reader.position();
  const NextLogs::Place place = placeIn(*_file, position);
  _reader.seek(position);
  return place;
}

bool FileLogSource::pathIsOpenFile() {
  platform::FileInfo open, named;
  return _file && _file->info(open) == 0 && _files.info(_openPath, named) == 0 &&
         named.identity == open.identity;
}

}  // namespace korvane
