// Cuts an open log file into lines of UTF-8 text, through one large buffer.
//
// A line that is longer than kLineLimit units (bytes of a UTF-8 log, code units of a UTF-16LE one;
// the line feed counts) is cut there, and what is left of it is skipped. At the end of the file the
// line may be unfinished: next() hands out what is there and says so; the caller takes it, or goes
// back with seek() and reads it again when more may be there.
//
// Lifetime: the File belongs to the caller and outlives the reader's use of it. The text of
// a line is valid until the next call of next() or seek(), may be changed in place, and has
// scan::kBlock readable bytes behind it. Threads: one at a time. Errors: next() returns the
// errno value of a failed read. Malformed text never fails: each fault becomes U+FFFD, as
// in STRING. Positions are bytes in the file.
#pragma once

#include <cstddef>
#include <cstdint>

#include "logs/byte_buffer.h"
#include "platform/fwd.h"

namespace korvane {

inline constexpr size_t kLineLimit = 69631;

struct SourceLine {
  char* text = nullptr;  // UTF-8, without the CR and LF at its end
  size_t size = 0;       // bytes of text
  size_t length = 0;     // units as read, line end included; 0: nothing was there
  size_t rawBytes = 0;   // bytes that the line takes up in the file
  int64_t start = 0;     // where it begins
  bool lineEnd = false;  // a line feed was seen
  bool cut = false;      // longer than the limit
};

class LineReader {
 public:
  // Reads `file` from `position` on.
  void attach(platform::File* file, bool utf16, int64_t position);
  void detach() { _file = nullptr; }
  [[nodiscard]] int next(SourceLine& line);
  // Goes on at `position`; what was read ahead is forgotten, so that appended bytes are seen.
  void seek(int64_t position);
  // The first byte that no line has been made of.
  int64_t position() const { return _base + static_cast<int64_t>(_begin); }
  bool buffered() const { return _begin < _end; }
  // The bytes of a unit: fewer behind the position make no line.
  int64_t unit() const { return _utf16 ? 2 : 1; }
  // Gives the buffers back until the next read.
  void releaseMemory();

 private:
  [[nodiscard]] int fill();
  [[nodiscard]] int findLineEnd(size_t limit, size_t& size, bool& found);
  size_t lineFeedIn(size_t from, size_t to) const;
  [[nodiscard]] int skipRestOfLine(bool& found);
  void take(size_t bytes, SourceLine& line);
  void convertUtf8(SourceLine& line);
  void convertUtf16(SourceLine& line);

  platform::File* _file = nullptr;
  bool _utf16 = false;
  bool _fileEnded = false;  // the last read reached the end of the file
  ByteBuffer _buffer;
  ByteBuffer _converted;  // a line that could not be used where it was read
  size_t _begin = 0;      // unread bytes of _buffer: [_begin, _end)
  size_t _end = 0;
  int _seekError = 0;
  int64_t _base = 0;  // file position of _buffer's first byte
};

}  // namespace korvane
