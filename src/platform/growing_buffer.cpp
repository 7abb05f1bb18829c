#include "platform/growing_buffer.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "platform/reserved_memory.h"

namespace korvane::platform {
namespace {

constexpr size_t kSmall = 64 * 1024;
constexpr size_t kStep = 1024 * 1024;

}  // namespace

bool GrowingBuffer::append(std::string_view piece) {
  if (piece.size() > _most - size()) return false;
  if (_reserved || _small.size() + piece.size() > kSmall)
    appendReserved(piece);
  else
    _small.append(piece);
  return true;
}

void GrowingBuffer::appendReserved(std::string_view piece) {
  if (!_reserved) {
    _reserved = static_cast<char*>(reserveMemory(_most));
    if (!_reserved) throw std::bad_alloc();
    const std::string before = std::move(_small);
    _small.clear();
    appendReserved(before);
  }
  const size_t needed = _size + piece.size();
  if (needed > _usable) {
    const size_t usable = std::min(_most, (needed + kStep - 1) / kStep * kStep);
    if (!commitMemory(_reserved + _usable, usable - _usable)) throw std::bad_alloc();
    _usable = usable;
  }
  std::memcpy(_reserved + _size, piece.data(), piece.size());
  _size = needed;
}

void GrowingBuffer::clear() {
  _small = std::string();
  if (_reserved) releaseMemory(_reserved, _most);
  _reserved = nullptr;
  _usable = _size = 0;
}

}  // namespace korvane::platform
