// Base64 according to RFC 4648: "+" and "/", "=" to the full four, no line breaks. Thread-safe.
#pragma once

#include <string>
#include <string_view>

namespace korvane {

std::string encodeBase64(std::string_view bytes);
// False, and `out` empty, for a text that is none.
[[nodiscard]] bool decodeBase64(std::string_view text, std::string& out);

}  // namespace korvane
