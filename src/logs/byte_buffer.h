// A byte buffer that grows without clearing what it gets and keeps its memory when it is
// emptied; the bytes behind its content can be read, so that texts in it may be scanned in
// blocks (byte_scan.h).
//
// Pointers into it are valid until it grows. It is used by one thread at a time and throws
// std::bad_alloc alone.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

#include "logs/byte_scan.h"

namespace korvane {

class ByteBuffer {
 public:
  char* data() { return _data.get(); }
  const char* data() const { return _data.get(); }
  size_t size() const { return _size; }
  size_t capacity() const { return _capacity; }
  std::string_view view() const { return {_data.get(), _size}; }

  void clear() { _size = 0; }
  // Gives the memory back.
  void release() {
    _data.reset();
    _size = _capacity = 0;
  }
  void reserve(size_t capacity) {
    if (capacity <= _capacity) return;
    auto larger = std::make_unique_for_overwrite<char[]>(capacity + scan::kBlock);
    if (_size) std::memcpy(larger.get(), _data.get(), _size);
    std::memset(larger.get() + capacity, 0, scan::kBlock);
    _data = std::move(larger);
    _capacity = capacity;
  }
  // Sets the size; added bytes are undefined.
  void resize(size_t size) {
    if (size > _capacity) reserve(std::max(size, _capacity * 2));
    _size = size;
  }
  void append(const char* bytes, size_t size) {
    const size_t at = _size;
    resize(at + size);
    if (size) std::memcpy(_data.get() + at, bytes, size);
  }
  void append(std::string_view bytes) { append(bytes.data(), bytes.size()); }

 private:
  std::unique_ptr<char[]> _data;
  size_t _size = 0;
  size_t _capacity = 0;
};

}  // namespace korvane
