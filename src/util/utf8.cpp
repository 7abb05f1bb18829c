#include "util/utf8.h"

#include <cstdint>

namespace korvane {
namespace {

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kInvalid = 0xFFFFFFFF;

// Takes one code point from the front of `bytes`. A malformed sequence gives kInvalid and takes the
// longest prefix that could have begun a well-formed one, at least one byte (Unicode, table 3-7).
char32_t nextCodePoint(std::string_view& bytes) {
  const auto at = [&](size_t i) { return static_cast<uint8_t>(bytes[i]); };
  const uint8_t lead = at(0);
  const auto take = [&](size_t count, char32_t result) {
    bytes.remove_prefix(count);
    return result;
  };
  if (lead < 0x80) return take(1, lead);
  if (lead < 0xC2 || lead > 0xF4) return take(1, kInvalid);
  const size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  uint8_t low = 0x80, high = 0xBF;
  if (lead == 0xE0) low = 0xA0;
  if (lead == 0xED) high = 0x9F;
  if (lead == 0xF0) low = 0x90;
  if (lead == 0xF4) high = 0x8F;
  char32_t code = lead & (0xFFu >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    if (i >= bytes.size() || at(i) < low || at(i) > high) return take(i, kInvalid);
    code = (code << 6) | (at(i) & 0x3Fu);
    low = 0x80, high = 0xBF;
  }
  return take(length, code);
}

}  // namespace

std::u16string utf8ToUtf16(std::string_view utf8) {
  std::u16string out;
  out.reserve(utf8.size());
  while (!utf8.empty()) {
    char32_t code = nextCodePoint(utf8);
    if (code == kInvalid) code = kReplacement;
    if (code >= 0x10000) {
      code -= 0x10000;
      out += static_cast<char16_t>(0xD800 + (code >> 10));
      out += static_cast<char16_t>(0xDC00 + (code & 0x3FF));
    } else {
      out += static_cast<char16_t>(code);
    }
  }
  return out;
}

void appendUtf8(std::string& out, std::u16string_view text) {
  for (size_t i = 0; i < text.size(); ++i) {
    char32_t code = text[i];
    if (code >= 0xD800 && code <= 0xDFFF) {
      const bool pair = code < 0xDC00 && i + 1 < text.size() && (text[i + 1] & 0xFC00) == 0xDC00;
      code = pair ? 0x10000 + ((code - 0xD800) << 10) + (text[++i] - 0xDC00u) : kReplacement;
    }
    const auto tail = [&](int shift) { out += static_cast<char>(0x80 | ((code >> shift) & 0x3F)); };
    if (code < 0x80) {
      out += static_cast<char>(code);
    } else if (code < 0x800) {
      out += static_cast<char>(0xC0 | (code >> 6));
      tail(0);
    } else if (code < 0x10000) {
      out += static_cast<char>(0xE0 | (code >> 12));
      tail(6), tail(0);
    } else {
      out += static_cast<char>(0xF0 | (code >> 18));
      tail(12), tail(6), tail(0);
    }
  }
}

std::string utf16ToUtf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  appendUtf8(out, text);
  return out;
}

bool isValidUtf8(std::string_view bytes) {
  while (!bytes.empty())
    if (nextCodePoint(bytes) == kInvalid) return false;
  return true;
}

}  // namespace korvane
