// Bytes that arrive piece by piece, up to a bound that is known before. It grows without being
// copied, so it never takes more memory than what has arrived, rounded up to a MiB.
//
// Lifetime: view() is valid until the next append() or clear(), which gives the memory back.
// Threads: one at a time. Errors: std::bad_alloc where the system has no memory.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace korvane::platform {

class GrowingBuffer {
 public:
  explicit GrowingBuffer(size_t most) : _most(most) {}
  ~GrowingBuffer() { clear(); }
  GrowingBuffer(const GrowingBuffer&) = delete;
  GrowingBuffer& operator=(const GrowingBuffer&) = delete;

  // False when that would be more than the bound; nothing is added then.
  [[nodiscard]] bool append(std::string_view piece);
  std::string_view view() const {
    return _reserved ? std::string_view(_reserved, _size) : std::string_view(_small);
  }
  size_t size() const { return _reserved ? _size : _small.size(); }
  void clear();

 private:
  void appendReserved(std::string_view piece);

  const size_t _most;
  std::string _small;         // until it is worth addresses of its own
  char* _reserved = nullptr;  // addresses for the most; memory for what is used of them
  size_t _usable = 0;
  size_t _size = 0;
};

}  // namespace korvane::platform
