// Scanning and copying of text a block of 16 bytes at a time. This is the one header of the room
// that uses compiler intrinsics (SSE2, which every x86-64 processor has); elsewhere the same
// functions work on plain bytes. No state, any thread.
//
// All of them may read up to kBlock - 1 bytes beyond the text they are given, copyShort also writes
// that much beyond it: the caller owns kBlock spare bytes behind the text (ByteBuffer and
// LineReader keep them).
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace korvane::scan {

inline constexpr size_t kBlock = 16;

// Bit i is set when the byte at[i] is `a` or `b`, for the first `count` (at most 16) bytes.
inline uint32_t positionsOf(const char* at, size_t count, char a, char b) {
#if defined(__SSE2__)
  const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at));
  const __m128i hits = _mm_or_si128(_mm_cmpeq_epi8(block, _mm_set1_epi8(a)),
                                    _mm_cmpeq_epi8(block, _mm_set1_epi8(b)));
  const auto mask = static_cast<uint32_t>(_mm_movemask_epi8(hits));
  return count >= kBlock ? mask : mask & ((1u << count) - 1);
#else
  uint32_t mask = 0;
  for (size_t i = 0; i < count && i < kBlock; ++i)
    mask |= static_cast<uint32_t>(at[i] == a || at[i] == b) << i;
  return mask;
#endif
}

// True when no byte of the text has its highest bit set.
inline bool isAscii(const char* text, size_t length) {
#if defined(__SSE2__)
  __m128i seen = _mm_setzero_si128();
  size_t i = 0;
  for (; i + kBlock <= length; i += kBlock)
    seen = _mm_or_si128(seen, _mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i)));
  auto mask = static_cast<uint32_t>(_mm_movemask_epi8(seen));
  if (i < length)
    mask |= static_cast<uint32_t>(
                _mm_movemask_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(text + i)))) &
            ((1u << (length - i)) - 1);
  return mask == 0;
#else
  unsigned char seen = 0;
  for (size_t i = 0; i < length; ++i) seen |= static_cast<unsigned char>(text[i]);
  return seen < 0x80;
#endif
}

// Narrows UTF-16LE text while it is ASCII; returns how many code units were converted. `out` has
// room for `units` and a block more.
inline size_t narrowAscii(const char* utf16le, size_t units, char* out) {
  size_t i = 0;
#if defined(__SSE2__)
  const __m128i beyondAscii = _mm_set1_epi16(static_cast<short>(0xFF80));
  for (; i + kBlock <= units; i += kBlock) {
    const auto* from = reinterpret_cast<const __m128i*>(utf16le + 2 * i);
    const __m128i low = _mm_loadu_si128(from), high = _mm_loadu_si128(from + 1);
    const __m128i other = _mm_and_si128(_mm_or_si128(low, high), beyondAscii);
    if (_mm_movemask_epi8(_mm_cmpeq_epi16(other, _mm_setzero_si128())) != 0xFFFF) break;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(low, high));
  }
#endif
  for (; i < units; ++i) {
    const char low = utf16le[2 * i];
    if (utf16le[2 * i + 1] != 0 || static_cast<unsigned char>(low) >= 0x80) break;
    out[i] = low;
  }
  return i;
}

// Copies a short text in whole blocks.
inline void copyShort(char* to, const char* from, size_t length) {
  size_t i = 0;
  do {
    std::memcpy(to + i, from + i, kBlock);
    i += kBlock;
  } while (i < length);
}

}  // namespace korvane::scan
