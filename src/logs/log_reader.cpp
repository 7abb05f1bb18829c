#include "logs/log_reader.h"

#include <string_view>

#include "agent/thread/stop_token.h"
#include "eventlog/event_log.h"
#include "ids/ids_log_names.h"
#include "logs/forwarding_counters.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "util/errors.h"

namespace korvane {
namespace {

constexpr char kSource[] = "LogReader";
constexpr int kEventLineSkipped = 10551;
// Where a MEOF record names the next log's file, without its folder.
constexpr size_t kNextLogField = 4;
constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";

// A byte order mark before the first record is no part of it.
void skipMark(SourceLine& line) {
  if (line.start != 0 || !std::string_view(line.text, line.size).starts_with(kUtf8Mark)) return;
  line.text += kUtf8Mark.size();
  line.size -= kUtf8Mark.size();
}

}  // namespace

LogReader::LogReader(LogType type)
    : _type(type),
      _files(platform::current().files),
      _config(AgentConfig::getInstance()),
      _source(type) {}

bool LogReader::next(ParsedEvent& record) {
  if (!prepare()) return false;
  SourceLine line;
  while (!shutdownToken().requested()) {
    if (!_source.readLine(line)) return pause();
    if (!line.lineEnd && !accepts(line)) {
      _source.goTo(line.start);
      return pause();
    }
    skipMark(line);
    if (parse(line, record)) return true;
    ForwardingCounters::addRejected();
  }
  return false;
}

bool LogReader::pause() {
  ++_pauses;
  return false;
}

// Opens the log when it is closed. False when there is nothing to read in it now.
bool LogReader::prepare() {
  if (!_source.isOpen() && !openLog()) return false;
  if (!_endRead || _source.stateAtEnd() == FileLogSource::FileState::grown) return true;
  return pause();
}

bool LogReader::openLog() {
  const STRING name = currentLogName();
  if (_awaitingNext || !platform::fileExists(_files, name.toUtf8())) refreshLogName();
  if (_awaitingNext && !platform::fileExists(_files, name.toUtf8()) && !currentLogIsAnother())
    return false;
  if (leftOver()) return false;
  _source.openLog();
  if (!_source.isOpen()) return false;
  const STRING opened = currentLogName();
  if (name.empty() && _source.savedOffset() == 0) {
    _source.switchToLog(opened);
  } else if (opened != name) {
    // Opened again by its name, so that its encoding is seen.
    _source.closeLog();
    _source.openLog();
  }
  if (_source.stateAtEnd() == FileLogSource::FileState::shrunken) _source.switchToLog(opened);
  _awaitingNext = false;
  _pauses = _leavingPasses = 0;
  return _source.isOpen();
}

// Whether an unfinished line is to be taken as it stands.
bool LogReader::accepts(const SourceLine& line) {
  if (line.start != _unfinishedStart || line.rawBytes != _unfinishedBytes) {
    _unfinishedStart = line.start;
    _unfinishedBytes = line.rawBytes;
    _unfinishedPasses = 0;
  }
  return ++_unfinishedPasses > kPatience ||
         _source.stateAtEnd() == FileLogSource::FileState::replaced;
}

bool LogReader::parse(const SourceLine& line, ParsedEvent& record) {
  _pauses = _leavingPasses = 0;
  try {
    if (parseEvent(line.text, line.size, record) != ParseResult::accepted) return false;
  } catch (const AgentError& error) {
    if (error.code() != kErrorTooManyFields) throw;
    eventlog::event(kEventLineSkipped, kSource, {currentLogName(), error.text()});
    return false;
  }
  record.lineStart = line.start;
  _endRead = record.isEndOfFile();
  if (_endRead) _namedByEnd = STRING(record.field(kNextLogField));
  return true;
}

bool LogReader::atEnd() {
  return _endRead && _source.isOpen() && _source.stateAtEnd() != FileLogSource::FileState::grown;
}

void LogReader::savePointer(int64_t undelivered) {
  if (_source.isOpen()) _source.savePointerAt(undelivered);
}

void LogReader::close() {
  _source.closeLog();
}

STRING LogReader::fingerprint(const platform::FileInfo& info) {
  return std::to_string(info.size) + " " + std::to_string(info.modifiedNs);
}

LogReader::FinishedLog LogReader::moveOn() {
  FinishedLog finished{currentLogName(), _source.pathIsOpenFile(), _source.position()};
  platform::FileInfo info;
  const bool known = _files.info(finished.name.toUtf8(), info) == 0;
  const STRING next = logAfter(finished.name);
  _source.setEndTimeStamp(finished.stillThere && known ? fingerprint(info) : STRING());
  _source.moveDurablyTo(next.empty() ? finished.name : next, 0);
  _endRead = false;
  _awaitingNext = true;
  return finished;
}

void LogReader::stayAt(const FinishedLog& log) {
  if (currentLogName() != log.name) return;
  _source.setEndTimeStamp(STRING());
  _source.moveDurablyTo(log.name, log.end);
  _awaitingNext = false;
}

std::optional<LogReader::FinishedLog> LogReader::leftOver() {
  if (_source.isOpen() || _source.savedOffset() != 0) return {};
  const STRING mark = _source.getEndTimeStamp(), name = currentLogName();
  platform::FileInfo info;
  if (mark.empty() || _files.info(name.toUtf8(), info) != 0 || fingerprint(info) != mark) return {};
  return FinishedLog{name, true, static_cast<int64_t>(info.size)};
}

// The component may have handed over more than once since its settings were last read, and it may have
// named the next log nowhere but in the end mark.
STRING LogReader::logAfter(const STRING& finished) {
  const std::string name = _namedByEnd.toUtf8();
  _namedByEnd.clear();
  const std::string beside =
      platform::joinPath(_files, {platform::directoryOf(finished.toUtf8()), name});
  if (!name.empty() && platform::fileNameOf(name) == name && STRING(beside) != finished &&
      platform::fileExists(_files, beside))
    return beside;
  refreshLogName();
  return _config->getCurrentLogFile(_type);
}

void LogReader::refreshLogName() {
  HidsInterface* const component = AgentConfig::getHIDSInterface();
  if (component && _type != AGENT_LOG) takeIdsLogFiles(*component);
}

bool LogReader::currentLogIsAnother() const {
  const STRING current = _config->getCurrentLogFile(_type);
  return !current.empty() && current != currentLogName() &&
         platform::fileExists(_files, current.toUtf8());
}

bool LogReader::currentLogHasBegun() const {
  platform::FileInfo info;
  return _files.info(_config->getCurrentLogFile(_type).toUtf8(), info) == 0 && info.size > 0;
}

std::optional<STRING> LogReader::successor() {
  if (!_source.isOpen()) return {};
  switch (_source.stateAtEnd()) {
    case FileLogSource::FileState::shrunken:
    case FileLogSource::FileState::replaced:
      return currentLogName();
    case FileLogSource::FileState::grown:
      return {};
    case FileLogSource::FileState::same:
      break;
  }
  if (_pauses > kPatience && _pauses % (kPatience + 1) == 0) refreshLogName();
  // The end mark may come after the new name, also in a log that has been quiet for long.
  _leavingPasses = currentLogIsAnother() && currentLogHasBegun() ? _leavingPasses + 1 : 0;
  if (_leavingPasses <= kPatience) return {};
  return _config->getCurrentLogFile(_type);
}

void LogReader::switchTo(const STRING& log) {
  _source.setEndTimeStamp(STRING());
  _source.switchToLog(log);
  _endRead = false;
  _pauses = _leavingPasses = 0;
}

}  // namespace korvane
