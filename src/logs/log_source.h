// One log's lines: a log together with its read pointer. A source belongs to the one thread that
// forwards its log and has no locks.
#pragma once

#include <memory>

#include "logs/log_pointer.h"

namespace korvane {

class LogSource {
 public:
  // Opens the log where the pointer stands; nothing when it is open already.
  virtual void openLog() = 0;
  virtual void closeLog() = 0;
  // Appends the next line, without CR and LF at its end, to `line`; opens the log when it is
  // closed. Returns its length as read (code units of a UTF-16LE log, bytes of a UTF-8 one; the
  // line end counts), 0 when there was nothing. FileError when reading fails.
  [[nodiscard]] virtual int readRecord(STRING& line) = 0;
  // True when no log is open or the open one is at its end.
  virtual bool isEOF() = 0;
  virtual void savePointer() = 0;
  // Moves to another log, to its beginning, and keeps that in the pointer at once.
  virtual void switchToLog(const STRING& path) = 0;
  virtual void setPointerFile(const STRING& path);
  virtual STRING getCurrentLogName() const;
  virtual STRING getStartTimeStamp();
  virtual STRING getEndTimeStamp();
  virtual void setStartTimeStamp(const STRING& text);
  virtual void setEndTimeStamp(const STRING& text);
  virtual ~LogSource() = default;

 protected:
  // Null for a type without a pointer.
  virtual LogPointer* pointer() const = 0;
};

}  // namespace korvane
