// The first eight bytes of a message's first frame: DE AD BE EF and the length, 32-bit
// little-endian.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace korvane {

inline constexpr unsigned char kMagic[] = {0xDE, 0xAD, 0xBE, 0xEF};
inline constexpr uint32_t kHeaderBytes = 8;
inline constexpr uint32_t kFirstBytes = 4096 - kHeaderBytes;  // of the message, in its first frame

inline bool beginsMessage(const char* frame) {
  return std::equal(std::begin(kMagic), std::end(kMagic),
                    reinterpret_cast<const unsigned char*>(frame));
}

inline uint32_t messageLength(const char* frame) {
  uint32_t length = 0;
  for (int i = 3; i >= 0; --i)
    length =
        length << 8 | static_cast<unsigned char>(frame[sizeof kMagic + static_cast<size_t>(i)]);
  return length;
}

inline void putHeader(char* frame, uint32_t length) {
  std::copy(std::begin(kMagic), std::end(kMagic), reinterpret_cast<unsigned char*>(frame));
  for (size_t i = 0; i < 4; ++i) frame[sizeof kMagic + i] = static_cast<char>(length >> (8 * i));
}

}  // namespace korvane
