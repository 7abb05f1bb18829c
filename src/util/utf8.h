// Conversions between UTF-8 and UTF-16. They never fail: what is malformed becomes U+FFFD.
// Thread-safe; they keep no state.
#pragma once

#include <string>
#include <string_view>

namespace korvane {

std::u16string utf8ToUtf16(std::string_view utf8);
std::string utf16ToUtf8(std::u16string_view text);

// Appends the UTF-8 form of `text` to `out`, without a temporary; for buffers that are reused.
void appendUtf8(std::string& out, std::u16string_view text);

// True when `bytes` is well-formed UTF-8: no overlong form, no surrogate, nothing above U+10FFFF.
bool isValidUtf8(std::string_view bytes);

}  // namespace korvane
