// Yields the records of one log, and knows when the log has come to its end and what comes after it.
//
// End: a log has ended when its MEOF record was read and nothing stands behind it; the end of the file
// alone is a pause. An unfinished line at the end of the file is read again later; after kPatience
// passes without growth it is taken as it stands. A line that is no record is skipped: one of a wrong
// type is event 10135, one of too many fields event 10551.
// What comes next: after the end, the log that the end mark names (its field 4, a file beside the ended
// one) when there is such a file, else the type's current log file, the component's settings being read
// anew. A log that was shortened, or whose name now leads to another file, is read anew from its
// beginning. A log that has stood still for kPatience passes while the type's current log was another file,
// and not an empty one, was left without its end mark; reading goes on there. For that the component's
// settings are read anew every so often.
// The positions of the old log mean nothing after such a move, so the caller makes it (moveOn, switchTo)
// when it holds nothing undelivered.
//
// Lifetime: a record's text is valid until the next call of next(). Threads: one. Errors: FileError, as
// FileLogSource throws it. Positions are bytes in the log.
#pragma once

#include <cstdint>
#include <optional>

#include "config/agent_config.h"
#include "logs/event_record.h"
#include "logs/file_log_source.h"

namespace korvane {

class LogReader {
 public:
  explicit LogReader(LogType type);

  static constexpr int kPatience = 5;

  // Tells one state of one file from any other. The pointer's end time stamp holds that of a log that
  // has been sent and is still to be removed.
  static STRING fingerprint(const platform::FileInfo& info);

  // The next record of the log; false when there is none now. Ends a pass over the log then.
  [[nodiscard]] bool next(ParsedEvent& record);
  // True when the log has ended.
  bool atEnd();
  // The position behind the last record.
  int64_t position() const { return _source.position(); }
  STRING currentLogName() const { return _source.getCurrentLogName(); }
  // Keeps `undelivered` as where reading goes on after a restart.
  void savePointer(int64_t undelivered);
  void close();

  struct FinishedLog {
    STRING name;
    bool stillThere = false;  // the name leads to the log that was read, not to a newer one
    int64_t end = 0;
  };
  // Leaves a log that has ended: the pointer moves lastingly to the beginning of the next one.
  FinishedLog moveOn();
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
  [[nodiscard]] bool accepts(const SourceLine& line);
  [[nodiscard]] bool parse(const SourceLine& line, ParsedEvent& record);
  [[nodiscard]] bool pause();
  bool currentLogIsAnother() const;
  bool currentLogHasBegun() const;
  STRING logAfter(const STRING& finished);
  void refreshLogName();

  const LogType _type;
  platform::Files& _files;
  AgentConfig* const _config;
  FileLogSource _source;
  bool _endRead = false;       // the MEOF record
  STRING _namedByEnd;          // the next log's file, as that record names it
  bool _awaitingNext = false;  // a log was finished and removed; its successor may not be there yet
  int _pauses = 0;             // passes that found nothing new
  int _leavingPasses = 0;      // those of them with another log begun
  int64_t _unfinishedStart = -1;
  size_t _unfinishedBytes = 0;
  int _unfinishedPasses = 0;
};

}  // namespace korvane
