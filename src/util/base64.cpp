#include "util/base64.h"

#include <array>
#include <cstdint>

namespace korvane {
namespace {

constexpr std::string_view kDigits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr int8_t kNone = -1;

constexpr std::array<int8_t, 256> makeValues() {
  std::array<int8_t, 256> values{};
  values.fill(kNone);
  for (size_t i = 0; i < kDigits.size(); ++i)
    values[static_cast<unsigned char>(kDigits[i])] = static_cast<int8_t>(i);
  return values;
}

constexpr std::array<int8_t, 256> kValues = makeValues();

}  // namespace

std::string encodeBase64(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (size_t at = 0; at < bytes.size(); at += 3) {
    const size_t there = bytes.size() - at < 3 ? bytes.size() - at : 3;
    uint32_t bits = 0;
    for (size_t i = 0; i < 3; ++i)
      bits = bits << 8 | (i < there ? static_cast<unsigned char>(bytes[at + i]) : 0u);
    for (size_t i = 0; i < 4; ++i) text += i <= there ? kDigits[bits >> (18 - 6 * i) & 63] : '=';
  }
  return text;
}

bool decodeBase64(std::string_view text, std::string& out) {
  out.clear();
  if (text.size() % 4 != 0) return false;
  const size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
  text.remove_suffix(padding);
  std::string decoded;
  decoded.reserve(text.size() / 4 * 3 + 2);
  uint32_t bits = 0;
  int count = 0;
  for (const char c : text) {
    const int8_t value = kValues[static_cast<unsigned char>(c)];
    if (value == kNone) return false;
    bits = (bits << 6 | static_cast<uint32_t>(value)) & 0xFFFFFF;
    count += 6;
    if (count < 8) continue;
    count -= 8;
    decoded += static_cast<char>(bits >> count);
  }
  // What is left over belongs to no byte and is zero.
  if (bits & ((1u << count) - 1)) return false;
  out = std::move(decoded);
  return true;
}

}  // namespace korvane
