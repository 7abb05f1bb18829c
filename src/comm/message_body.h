// The body of a protocol message, built in place as the bytes that go on the wire.
//
// A body is a row of sections and an end marker:
//
//   Data-Format=text/plain LF Data-Type=properties LF Data-Length=12 LF LF <12 bytes> LF ...
//   EOF_FLAG LF
//
// It is the one place where framing is written: the generator's sections and the log forwarding
// both end here. A MessageBody keeps its memory over clear(), so that one object serves batch after
// batch without allocating. It is used by one thread at a time. It throws std::bad_alloc alone. All
// sizes are bytes.
//
//   MessageBody body;
//   char* line = body.beginProperties(5);
//   std::memcpy(line, "a=b\n\n", 5);
//   body.endSection();
//   body.finish();
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <utility>

#include "util/export.h"

namespace korvane {

class KORVANE_EXPORT MessageBody {
 public:
  MessageBody() = default;
  MessageBody(const MessageBody&) = delete;
  MessageBody& operator=(const MessageBody&) = delete;
  MessageBody(MessageBody&& other) noexcept { *this = std::move(other); }
  MessageBody& operator=(MessageBody&& other) noexcept {
    std::swap(_data, other._data);
    std::swap(_size, other._size);
    std::swap(_capacity, other._capacity);
    return *this;
  }

  // Forgets the content, keeps the memory.
  void clear() { _size = 0; }
  // Valid until the next call that is not const.
  std::string_view bytes() const { return {_data.get(), _size}; }
  size_t size() const { return _size; }
  // Makes room for that many bytes in all.
  void reserve(size_t capacity);

  // Writes the framing lines of a section whose payload will have exactly payloadBytes bytes, and
  // returns where the caller writes them. The place is valid until the next call.
  char* beginSection(std::string_view format, std::string_view name, size_t payloadBytes);
  // The same for a section of name=value lines.
  char* beginProperties(size_t payloadBytes);
  // The line feed that follows every section.
  void endSection();

  // A whole section without the line feed behind it.
  void addSection(std::string_view format, std::string_view name, std::string_view payload);
  // The end marker.
  void finish();
  // Bytes as they stand.
  void append(std::string_view bytes);

 private:
  char* grow(size_t bytes);

  std::unique_ptr<char[]> _data;
  size_t _size = 0;
  size_t _capacity = 0;
};

// The byte buffer that sections are written into.
using StringBuffer = MessageBody;

}  // namespace korvane
