#include "logs/log_reader.h"

#include <algorithm>
#include <string_view>

#include "agent/thread/stop_token.h"
#include "config/log_names.h"
#include "config/log_settings.h"
#include "eventlog/event_log.h"
#include "ids/ids_log_names.h"
#include "logs/forwarding_counters.h"
#include "logs/log_mark.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/errors.h"

namespace korvane {
namespace {

constexpr char kReaderSource[] = "LogReader";
// Where a MEOF record names the next log's file, without its folder.
constexpr size_t kFollowerField = 4;
constexpr std::string_view kUtf8Bom = "\xEF\xBB\xBF";

// A byte order mark before the first record is not part of it.
void skipMark(SourceLine& line) {
  if (line.start != 0 || !std::string_view(line.text, line.size).starts_with(kUtf8Bom)) return;
  line.text += kUtf8Bom.size();
  line.size -= kUtf8Bom.size();
}

}  // namespace

LogReader::LogReader(LogType type, const ForwardingParts& parts)
    : _type(type),
      _parts(parts),
      _source(type, parts.files, parts.settings),
      _account(parts.ledger, parts.clock, logBaseName(type)),
      _next(parts.files, NextLogs::pathBeside(parts.settings.getLogPointerFileName(type))) {
  _next.load(currentLogName());
  resumeAccount();
}

void LogReader::resumeAccount() {
  _account.resume(_source.savedAccount());
  const STRING pointerFile = _parts.settings.getLogPointerFileName(_type);
  if (_source.pointerDamaged()) loseLog(pointerFile);
  if (_next.unusable()) loseLog(NextLogs::pathBeside(pointerFile));
}

// A line that is cut is delivered all the same; an empty one was never an event.
void LogReader::loseLine(LossCause cause, const SourceLine& line) {
  if (line.size == 0) return;
  _account.loseLine(cause, currentLogName().toUtf8(), _source.identity(), line.start,
                    line.start + static_cast<int64_t>(line.rawBytes));
}

// A whole log that is not there, or what should have named it.
void LogReader::loseLog(const STRING& log) {
  Loss loss;
  loss.stream = logBaseName(_type);
  loss.log = log.toUtf8();
  loss.cause = LossCause::logGap;
  loss.counted = false;
  loss.first.wallMs = loss.last.wallMs = _parts.clock.wallMs();
  _parts.ledger.record(loss);
}

void LogReader::loseRest(LossCause cause, int64_t from) {
  const bool gone = cause == LossCause::logGone;
  eventlog::event(gone ? EventId::logGoneUnread : EventId::logReplacedUnread, kReaderSource,
                  {currentLogName(), from});
  _account.loseRest(cause, currentLogName().toUtf8(), from);
}

// Nothing of the old log is held, so all that was lost of it is past.
void LogReader::moveTo(const STRING& log, int64_t offset) {
  _source.setAccount(_account.settleAll().state);
  _source.moveDurablyTo(log, offset);
}

void LogReader::beginAnew(const STRING& log) {
  moveTo(log, 0);
  _source.openLog();
}

bool LogReader::next(ParsedEvent& record) {
  if (!prepare()) return false;
  SourceLine line;
  while (!_parts.stop.requested()) {
    if (!_source.readLine(line)) return false;
    if (!line.lineEnd && !accepts(line)) {
      _source.goTo(line.start);
      return false;
    }
    skipMark(line);
    if (parse(line, record)) {
      if (line.cut) loseLine(LossCause::lineTooLong, line);
      return true;
    }
    loseLine(LossCause::lineRejected, line);
    _parts.counters.addRejected();
  }
  return false;
}

// Opens the log when it is closed. False when there is nothing to read in it now.
bool LogReader::prepare() {
  if (!_source.isOpen() && !openLog()) return false;
  return !_endRead || _source.stateAtEnd() == FileLogSource::FileState::grown;
}

bool LogReader::openLog() {
  if (leftOver() || (!logIsThere() && !goOnFromMissing())) return false;
  const STRING name = currentLogName();
  // One that is there and may not be read now is waited for.
  if (logIsThere()) return _source.openPointersLog() && beginReading();
  _source.openLog();
  if (!_source.isOpen()) return false;
  const STRING opened = currentLogName();
  if (opened != name) {
    // Opened again by its name, so that its encoding is seen. The offset of a damaged
    // pointer stays in force.
    _source.closeLog();
    if (!name.empty()) _next.leave(name, {});
    if (const auto waiting = _next.indexOf(opened))
      goTo(*waiting);
    else if (_source.savedOffset() == 0)
      beginAnew(opened);
    _source.openLog();
  }
  return beginReading();
}

// The open log, where the pointer stands, or from its beginning where that means nothing.
bool LogReader::beginReading() {
  const STRING opened = currentLogName();
  if (_source.isAnotherLog() || _source.stateAtEnd() == FileLogSource::FileState::shrunken) {
    loseRest(LossCause::logReplaced, _source.savedOffset());
    beginAnew(opened);
  }
  _parts.ledger.withdraw(opened.toUtf8(), LossCause::logGap);
  forgetLog();
  return _source.isOpen();
}

bool LogReader::logIsThere() const {
  return platform::fileExists(_parts.files, currentLogName().toUtf8());
}

// What to read when the pointer's log is not there. True when a log is to be opened now.
bool LogReader::goOnFromMissing() {
  const auto& waiting = _next.names();
  if (currentLogName().empty()) {
    if (waiting.empty()) return true;
    // A damaged pointer's offset may be that of the only log there is.
    if (waiting.size() == 1 && _source.savedOffset() != 0) {
      _next.drop(1);
      return true;
    }
    goTo(0);
    return logIsThere();
  }
  if (_nextUnknown && !waiting.empty()) {
    goTo(0);
    _awaitingNext = true;
    return logIsThere();
  }
  const auto begun = firstBegun();
  _missingPasses = begun ? _missingPasses + 1 : 0;
  // Where there is nothing to open, the try says so.
  if (!begun)
    return !_awaitingNext &&
           !platform::fileExists(_parts.files, _parts.settings.getCurrentLogFile(_type).toUtf8());
  if (_source.savedOffset() == 0) {
    if (_missingPasses <= kAwaitPasses) return false;
    passOver(currentLogName(), waiting[*begun]);
  } else {
    loseRest(LossCause::logGone, _source.savedOffset());
  }
  goTo(*begun);
  return true;
}

// What was left before keeps its place.
void LogReader::passOver(const STRING& log, const STRING& next) {
  if (_next.isLeft(log)) return;
  eventlog::event(EventId::logPassedOver, kReaderSource, {log, next});
  loseLog(log);
  _next.leave(log, {});
}

// The reader goes to a log that waits, past those before it.
void LogReader::goTo(size_t next) {
  const STRING log = _next.names()[next];
  for (size_t i = 0; i < next; ++i) passOver(_next.names()[i], log);
  _next.save();
  _source.setEndTimeStamp(STRING());
  const int64_t offset = _next.enter(log);
  _next.drop(next + 1);
  forgetLog();
  moveTo(log, offset);
  // Before another file can take the place of the one that the offset belongs to.
  if (offset > 0) _source.openLog();
  _next.save();
}

void LogReader::forgetLog() {
  _endRead = _awaitingNext = _nextUnknown = false;
  _namedByEnd.clear();
  _leavingPasses = _missingPasses = 0;
  _unfinishedStart = -1;
}

// Whether an unfinished line is to be taken as it stands.
bool LogReader::accepts(const SourceLine& line) {
  // Half a code unit is growth, too.
  const int64_t logEnd = _source.size();
  if (line.start != _unfinishedStart || logEnd != _unfinishedEnd) {
    _unfinishedStart = line.start;
    _unfinishedEnd = logEnd;
    _unfinishedPasses = 0;
  }
  return ++_unfinishedPasses > kPatience ||
         _source.stateAtEnd() == FileLogSource::FileState::replaced;
}

bool LogReader::parse(const SourceLine& line, ParsedEvent& record) {
  _leavingPasses = 0;
  try {
    if (parseEvent(line.text, line.size, record) != ParseResult::accepted) return false;
  } catch (const AgentError& error) {
    if (error.code() != kErrorTooManyFields) throw;
    eventlog::event(EventId::logLineSkipped, kReaderSource, {currentLogName(), error.text()});
    return false;
  }
  record.lineStart = line.start;
  _endRead = record.isEndOfFile();
  if (_endRead) _namedByEnd = STRING(record.field(kFollowerField));
  return true;
}

bool LogReader::atEnd() {
  return _endRead && _source.isOpen() && _source.stateAtEnd() != FileLogSource::FileState::grown;
}

void LogReader::savePointer(int64_t undelivered, uint64_t held) {
  if (!_source.isOpen()) return;
  const LogAccount::Settled settled = _account.settleBefore(undelivered, held);
  _source.setAccount(settled.state);
  _source.savePointerAt(undelivered, settled.lossy);
}

LogReader::FinishedLog LogReader::moveOn() {
  FinishedLog finished{currentLogName(), _source.pathIsOpenFile(), _source.position(),
                       _source.place()};
  const STRING mark = finished.stillThere ? _source.mark() : STRING();
  const bool named = noteNamedByEnd(finished);
  addSeenNames();
  const bool known = !_next.names().empty();
  STRING next = known ? _next.names().front() : _parts.settings.getCurrentLogFile(_type);
  if (next.empty()) next = finished.name;
  // Until it is removed it may be named again; and where no other was named, a new log may
  // come under its name.
  finished.watched = !named;
  if (!NextLogs::same(next, finished.name)) _next.leave(finished.name, finished.place);
  _next.save();
  const int64_t offset = _next.enter(next);
  if (known) _next.drop(1);
  forgetLog();
  _awaitingNext = true;
  _nextUnknown = !known;
  // Throws where the pointer cannot be written; a later pass makes good for that (leftOver).
  _source.setEndTimeStamp(mark);
  moveTo(next, offset);
  if (offset > 0) _source.openLog();
  _next.save();
  return finished;
}

void LogReader::forget(const FinishedLog& log) {
  if (!log.watched) _next.enter(log.name);
}

void LogReader::stayAt(const FinishedLog& log) {
  _source.setEndTimeStamp(STRING());
  if (currentLogName() == log.name) {
    moveTo(log.name, log.end);
    _awaitingNext = _nextUnknown = false;
  } else {
    _next.leave(log.name, log.place);
    _next.save();
  }
}

std::optional<LogReader::FinishedLog> LogReader::leftOver() {
  if (_source.isOpen()) return {};
  const STRING mark = _source.getEndTimeStamp();
  if (mark.empty()) return {};
  _source.settleMove();
  std::vector<STRING> names = _next.names();
  names.push_back(_parts.settings.getCurrentLogFile(_type));
  if (_source.savedOffset() == 0) names.push_back(currentLogName());
  for (const STRING& name : names) {
    platform::FileInfo info;
    std::unique_ptr<platform::File> file;
    if (!hasLogMark(_parts.files, name, mark)) continue;
    if (_parts.files.open(name.toUtf8(), platform::OpenMode::read, file) != 0 ||
        file->info(info) != 0)
      continue;
    const auto end = static_cast<int64_t>(info.size);
    return FinishedLog{name, true, end, placeIn(*file, end)};
  }
  return {};
}

// Where the name leads to another file already, that one comes next when no other is named.
bool LogReader::noteNamedByEnd(const FinishedLog& finished) {
  const std::string name = _namedByEnd.toUtf8();
  const std::string folder = platform::directoryOf(finished.name.toUtf8());
  const bool named = !name.empty() && platform::fileNameOf(name) == name;
  if (named)
    _next.noteSuccessor(platform::joinPath(_parts.files, {folder, name}));
  else if (!finished.stillThere && logIsThere())
    _next.noteSuccessor(finished.name);
  return named;
}

void LogReader::noteNames() {
  addSeenNames();
  _next.recallGrown(currentLogName());
  _source.keepDurably();
  _next.save();
}

void LogReader::addSeenNames() {
  if (_parts.ids && _type != AGENT_LOG) fetchIdsLogFiles(*_parts.ids, _parts.settings);
  const STRING log = currentLogName();
  if (_type == HIDS_RT_LOG)
    for (const STRING& name : _parts.settings.takeHIDSRTLogFilesSeen()) _next.note(name, log);
  const STRING current = _parts.settings.getCurrentLogFile(_type);
  _next.note(current, log);
  for (const STRING& name : _next.takeDropped()) loseLog(name);
  // A name that was seen before may come to be used again.
  if (!current.empty() && !NextLogs::same(current, log) && hasBegun(current)) _next.append(current);
}

bool LogReader::hasBegun(const STRING& name) const {
  platform::FileInfo info, open;
  if (_parts.files.info(name.toUtf8(), info) != 0 || info.size == 0 || info.isDirectory)
    return false;
  // The log being read, by another spelling, is none that comes next.
  return _parts.files.info(currentLogName().toUtf8(), open) != 0 || open.identity == 0 ||
         open.identity != info.identity;
}

std::optional<size_t> LogReader::firstBegun() const {
  const auto& waiting = _next.names();
  // Logs with nothing more would be gone to and left again for ever, and those behind them not
  // read: each of two that wait for the other comes right behind it.
  for (size_t i = 0; i < waiting.size(); ++i)
    if (hasBegun(waiting[i]) && !_next.isExhausted(waiting[i])) return i;
  return {};
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
  // The end mark may come after the new name, also in a log that has been quiet for long.
  const auto begun = firstBegun();
  _leavingPasses = begun ? _leavingPasses + 1 : 0;
  if (_leavingPasses <= (begun.value_or(0) > 0 ? kAwaitPasses : kPatience)) return {};
  return _next.names()[*begun];
}

void LogReader::switchTo(const STRING& log) {
  const auto waiting = _next.indexOf(log);
  if (log == currentLogName() || !waiting) {
    _source.setEndTimeStamp(STRING());
    if (_source.stateAtEnd() == FileLogSource::FileState::shrunken)
      loseRest(LossCause::logReplaced, _source.position());
    beginAnew(log);
    forgetLog();
    return;
  }
  if (_source.pathIsOpenFile()) {
    // For a log that was left itself it is left for a while.
    if (_next.isLeft(log)) _next.noteReturn(currentLogName(), *waiting);
    _next.leave(currentLogName(), _source.place());
  }
  goTo(*waiting);
}

}  // namespace korvane
