#include "logs/line_reader.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/files.h"
#include "util/utf8.h"

namespace korvane {
namespace {

constexpr size_t kBufferBytes = 256 * 1024;
constexpr size_t kNone = static_cast<size_t>(-1);
constexpr size_t kUnit16 = 2;

static_assert(kBufferBytes > kUnit16 * kLineLimit, "the longest line must fit");

}  // namespace

void LineReader::attach(platform::File* file, bool utf16, int64_t position) {
  _file = file;
  _utf16 = utf16;
  seek(position);
}

void LineReader::seek(int64_t position) {
  _base = position;
  _begin = _end = 0;
  _seekError = _file->seek(position);
}

void LineReader::releaseMemory() {
  if (buffered()) return;
  _base = position();
  _begin = _end = 0;
  _buffer.release();
  _converted.release();
}

int LineReader::fill() {
  // From any other place the lines would be others.
  if (_seekError != 0) return _seekError;
  _buffer.resize(kBufferBytes);
  if (_begin > 0) {
    std::memmove(_buffer.data(), _buffer.data() + _begin, _end - _begin);
    _base += static_cast<int64_t>(_begin);
    _end -= _begin;
    _begin = 0;
  }
  size_t got = 0;
  const size_t room = kBufferBytes - _end;
  const int error = _file->read(_buffer.data() + _end, room, got);
  _end += got;
  _fileEnded = got < room;
  return error;
}

// The position of a line feed's first byte in [from, to), which begins at a unit; kNone
// without one.
size_t LineReader::lineFeedIn(size_t from, size_t to) const {
  const char* const data = _buffer.data();
  for (size_t at = from; at < to; ++at) {
    const void* hit = std::memchr(data + at, '\n', to - at);
    if (!hit) return kNone;
    at = static_cast<size_t>(static_cast<const char*>(hit) - data);
    if (!_utf16) return at;
    if ((at - from) % kUnit16 == 0 && at + 1 < to && data[at + 1] == 0) return at;
  }
  return kNone;
}

// How many bytes from _begin make up the line, at most `limit`, reading on as needed.
int LineReader::findLineEnd(size_t limit, size_t& size, bool& found) {
  const size_t unit = _utf16 ? kUnit16 : 1;
  size_t searched = 0;
  for (_fileEnded = false;;) {
    const size_t available = std::min(_end - _begin, limit) / unit * unit;
    const size_t at = lineFeedIn(_begin + searched, _begin + available);
    found = at != kNone;
    if (found) {
      size = at - _begin + unit;
      return 0;
    }
    size = searched = available;
    if (available == limit || _fileEnded) return 0;
    if (const int error = fill()) return error;
  }
}

int LineReader::skipRestOfLine(bool& found) {
  const size_t limit = kLineLimit * (_utf16 ? kUnit16 : 1);
  size_t size = 0;
  do {
    if (const int error = findLineEnd(limit, size, found)) return error;
    _begin += size;
  } while (size == limit && !found);
  return 0;
}

int LineReader::next(SourceLine& line) {
  const size_t limit = kLineLimit * (_utf16 ? kUnit16 : 1);
  line.start = position();
  line.cut = false;
  size_t size = 0;
  if (const int error = findLineEnd(limit, size, line.lineEnd)) return error;
  line.length = size / (_utf16 ? kUnit16 : 1);
  take(size, line);
  if (size == limit && !line.lineEnd) {
    line.cut = true;
    if (const int error = skipRestOfLine(line.lineEnd)) return error;
  }
  line.rawBytes = static_cast<size_t>(position() - line.start);
  return 0;
}

// Makes the first `bytes` unread bytes the text of the line.
void LineReader::take(size_t bytes, SourceLine& line) {
  line.text = _buffer.data() + _begin;
  line.size = bytes;
  _begin += bytes;
  if (_utf16) {
    convertUtf16(line);
  } else if (!line.lineEnd || !scan::isAscii(line.text, bytes)) {
    convertUtf8(line);
  }
  while (line.size > 0 && (line.text[line.size - 1] == '\n' || line.text[line.size - 1] == '\r'))
    --line.size;
}

// A line that is cut or unfinished is copied too: reading on moves the buffer under it.
void LineReader::convertUtf8(SourceLine& line) {
  const std::string_view raw(line.text, line.size);
  if (isValidUtf8(raw)) {
    if (line.lineEnd) return;
    _converted.clear();
    _converted.append(raw);
  } else {
    const std::string repaired = utf16ToUtf8(utf8ToUtf16(raw));
    _converted.clear();
    _converted.append(repaired);
  }
  line.text = _converted.data();
  line.size = _converted.size();
}

void LineReader::convertUtf16(SourceLine& line) {
  const size_t units = line.size / kUnit16;
  _converted.resize(units + scan::kBlock);
  const size_t plain = scan::narrowAscii(line.text, units, _converted.data());
  _converted.resize(plain);
  if (plain < units) {
    std::u16string rest(units - plain, u'\0');
    for (size_t i = 0; i < rest.size(); ++i) {
      const auto* bytes = reinterpret_cast<const unsigned char*>(line.text) + kUnit16 * (plain + i);
      rest[i] = static_cast<char16_t>(bytes[0] | bytes[1] << 8);
    }
    _converted.append(utf16ToUtf8(rest));
  }
  line.text = _converted.data();
  line.size = _converted.size();
}

}  // namespace korvane
