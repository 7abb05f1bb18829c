// A 64-bit hash of bytes (FNV-1a) for recognising the same content later, not for defence against
// forgery, and its text of 16 hexadecimal digits.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace korvane {

inline uint64_t textHash(std::string_view bytes) {
  uint64_t hash = 0xcbf29ce484222325u;
  for (const char c : bytes) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3u;
  return hash;
}

inline std::string hexText(uint64_t value) {
  std::string text(16, '0');
  for (size_t i = text.size(); value != 0; value >>= 4) text[--i] = "0123456789abcdef"[value & 15];
  return text;
}

}  // namespace korvane
