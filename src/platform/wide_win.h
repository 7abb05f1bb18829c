// UTF-8 to the wide texts of Win32 and back, and paths as Win32 takes them. Only for the Win32
// siblings of the seam. Thread-safe; malformed text becomes U+FFFD and never fails.
#pragma once

#include <string>
#include <string_view>

namespace korvane::platform {

std::wstring wide(std::string_view utf8);
std::string narrow(std::wstring_view text);

// The full path with backslashes, and with the long-path prefix when it is too long to do
// without. Empty for an empty path.
std::wstring widePath(std::string_view path);

// The system's text for an error number, on one line, with the number.
std::string systemText(unsigned long error);

}  // namespace korvane::platform
