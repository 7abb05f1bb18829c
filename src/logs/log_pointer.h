// Where the agent stands in one log: which file, and how far it has been read. A pointer belongs to
// the one thread that forwards its log. Names are full paths; offsets are bytes.
#pragma once

#include "util/string.h"

namespace korvane {

class LogPointer {
 public:
  virtual ~LogPointer() = default;
  virtual STRING getCurrentLogName() const = 0;
  // Of the next unread line. Signed 32 bits: 2147483647 stands for every place beyond.
  virtual int getOffset() = 0;
  // Keeps the pointer lastingly. FileError when that fails; what is in memory stays.
  virtual void writePointer() = 0;
  virtual void addOffset(int amount) = 0;
  virtual void setCurrentLogName(const STRING& name) = 0;
  virtual void setOffset(int offset) = 0;
  // Where the pointer is kept from the next write on.
  virtual void setPointerFile(const STRING& path) { _pointerFile = path; }
  // Free texts that are kept with the pointer; nothing is made of them.
  virtual STRING getStartTimeStamp() = 0;
  virtual STRING getEndTimeStamp() = 0;
  virtual void setStartTimeStamp(const STRING& text) = 0;
  virtual void setEndTimeStamp(const STRING& text) = 0;

 protected:
  STRING _pointerFile;
};

}  // namespace korvane
