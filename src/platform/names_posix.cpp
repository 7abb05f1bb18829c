#include <algorithm>
#include <iterator>

#include "platform/case_folding.h"
#include "platform/names.h"

namespace korvane::platform {
namespace {

// Takes one character; half a pair stands for itself.
char32_t take(std::u16string_view& text) {
  const char32_t unit = text.front();
  text.remove_prefix(1);
  if (unit < 0xD800 || unit > 0xDBFF || text.empty() || (text.front() & 0xFC00) != 0xDC00)
    return unit;
  const char32_t low = text.front();
  text.remove_prefix(1);
  return 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

char32_t folded(char32_t code) {
  if (code < 0x80) return code >= U'A' && code <= U'Z' ? code + 0x20 : code;
  const auto run = std::lower_bound(
      std::begin(kCaseFolding), std::end(kCaseFolding), code,
      [](const CaseFolding& entry, char32_t wanted) { return entry.last < wanted; });
  if (run == std::end(kCaseFolding) || code < run->first || (code - run->first) % run->step != 0)
    return code;
  return static_cast<char32_t>(static_cast<int32_t>(code) + run->distance);
}

}  // namespace

int compareNames(std::u16string_view one, std::u16string_view other) {
  while (!one.empty() && !other.empty()) {
    const char32_t left = folded(take(one));
    const char32_t right = folded(take(other));
    if (left != right) return left < right ? -1 : 1;
  }
  return one.empty() ? (other.empty() ? 0 : -1) : 1;
}

}  // namespace korvane::platform
