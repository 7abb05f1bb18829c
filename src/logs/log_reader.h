// Yields the records of one log, and knows when the log has come to its end and what comes
// after it.
//
// End: a log has ended when its MEOF record was read and nothing stands behind it; the end of the
// file alone is a pause. An unfinished line at the end of the file is read again later; after
// kPatience passes without growth it is taken as it stands. A line that is not a record is skipped:
// one of a wrong type is event 10135, one of too many fields event 10551.
// What comes next: the names that the component's settings showed and those in end marks wait
// in NextLogs, in the order in which they were seen (docs/file-formats.md); the name in a
// log's end mark is that of the log right behind it. Without one the component's current log
// comes next. noteNames() looks at the settings; whoever drives the reader calls it often. A
// log that waits has begun when its file is there and is not empty. A log that has stood
// still for kPatience passes while a later one had begun was left without its end mark;
// reading goes on there, and comes back should the log grow. A log that is not there is
// skipped after kAwaitPasses passes when a later one has begun (event 10554), and read when
// it does appear. A log that was shortened, or whose name now leads to another file, is
// reread from its beginning. The positions of the old log mean nothing after such a move, so
// the caller makes it (moveOn, switchTo) when it holds nothing undelivered. What is lost on the way,
// lines and logs, goes to the account and the ledger (docs/ledger.md).
//
// Lifetime: the parts outlive the reader; a record's text is valid until the next call of next().
// Threads: one. Errors: FileError, as FileLogSource throws it. Positions are bytes in the log.
#pragma once

#include <cstdint>
#include <optional>

#include "config/log_type.h"
#include "logs/event_record.h"
#include "logs/file_log_source.h"
#include "logs/forwarding_parts.h"
#include "logs/log_account.h"
#include "logs/next_logs.h"

namespace korvane {

class LogReader {
 public:
  LogReader(LogType type, const ForwardingParts& parts);

  static constexpr int kPatience = 5;
  static constexpr int kAwaitPasses = 10;

  // Looks at the names that the component's settings show, and at the logs that were left.
  void noteNames();
  // The next record of the log; false when there is none now. Ends a pass over the log then.
  [[nodiscard]] bool next(ParsedEvent& record);
  // True when the log has ended.
  bool atEnd();
  // The position behind the last record.
  int64_t position() const { return _source.position(); }
  STRING currentLogName() const { return _source.getCurrentLogName(); }
  // Keeps `undelivered` as where reading goes on after a restart. held: lines that were read and are
  // neither delivered nor lost, all of them from there on.
  void savePointer(int64_t undelivered, uint64_t held);
  LogAccount& account() { return _account; }
  uint64_t identity() const { return _source.identity(); }

  struct FinishedLog {
    STRING name;
    bool stillThere = false;  // the name leads to the log that was read, not to a newer one
    int64_t end = 0;
    NextLogs::Place place = {};  // its end
    bool watched = true;         // its name may come to be another log's
  };
  // Leaves a log that has ended: the pointer moves lastingly to the beginning of the next one.
  FinishedLog moveOn();
  // The log has been removed.
  void forget(const FinishedLog& log);
  // Keeps the end of a log that could not be removed, when it would otherwise be read again.
  void stayAt(const FinishedLog& log);
  // A finished log that was still to be removed when the agent was ended; the caller removes it.
  [[nodiscard]] std::optional<FinishedLog> leftOver();

  // The log to go on with from its beginning, when reading cannot go on in the open one.
  [[nodiscard]] std::optional<STRING> successor();
  void switchTo(const STRING& log);
  void releaseMemory() { _source.releaseMemory(); }

 private:
  [[nodiscard]] bool prepare();
  [[nodiscard]] bool openLog();
  [[nodiscard]] bool beginReading();
  [[nodiscard]] bool accepts(const SourceLine& line);
  [[nodiscard]] bool parse(const SourceLine& line, ParsedEvent& record);
  bool logIsThere() const;
  [[nodiscard]] bool goOnFromMissing();
  std::optional<size_t> firstBegun() const;
  bool hasBegun(const STRING& name) const;
  void addSeenNames();
  [[nodiscard]] bool noteNamedByEnd(const FinishedLog& finished);
  void goTo(size_t next);
  void passOver(const STRING& log, const STRING& next);
  void forgetLog();
  void resumeAccount();
  void loseLine(LossCause cause, const SourceLine& line);
  void loseLog(const STRING& log);
  void loseRest(LossCause cause, int64_t from);
  void moveTo(const STRING& log, int64_t offset);
  void beginAnew(const STRING& log);

  const LogType _type;
  const ForwardingParts _parts;
  FileLogSource _source;
  LogAccount _account;
  NextLogs _next;
  bool _endRead = false;       // the MEOF record
  STRING _namedByEnd;          // the next log's file, as that record names it
  bool _awaitingNext = false;  // a log was finished; its successor may not be there yet
  bool _nextUnknown = false;   // and nobody named it
  int _leavingPasses = 0;      // that found nothing new while another log had begun
  int _missingPasses = 0;      // that did not find the log while another one had begun
  int64_t _unfinishedStart = -1;
  int64_t _unfinishedEnd = 0;
  int _unfinishedPasses = 0;
};

}  // namespace korvane
