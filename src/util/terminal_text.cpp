#include "util/terminal_text.h"

#include "util/utf8.h"

namespace korvane {
namespace {

bool steers(char16_t unit) {
  if (unit < 0x20) return unit != u'\t' && unit != u'\n';
  return (unit >= 0x7F && unit <= 0x9F) || unit == 0x061C || unit == 0x200E || unit == 0x200F ||
         (unit >= 0x202A && unit <= 0x202E) || (unit >= 0x2066 && unit <= 0x2069);
}

}  // namespace

std::string terminalText(std::string_view utf8) {
  constexpr char16_t kHexDigits[] = u"0123456789abcdef";
  std::u16string out;
  out.reserve(utf8.size());
  for (const char16_t unit : utf8ToUtf16(utf8)) {
    if (!steers(unit)) {
      out += unit;
      continue;
    }
    out += u"\\u";
    for (int shift = 12; shift >= 0; shift -= 4) out += kHexDigits[unit >> shift & 15];
  }
  return utf16ToUtf8(out);
}

}  // namespace korvane
