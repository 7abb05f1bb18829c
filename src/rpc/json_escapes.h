// A text between the quotes of JSON, letter for letter as Boost's writer makes it and its parser
// takes it: for texts so long that the copies of those two count. Pure functions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace korvane {

size_t escapedSize(std::string_view text);
void appendEscaped(std::string& out, std::string_view text);
// Turns `text` into what it stands for, in its place. False for what is no text in JSON: a control
// character, an unknown escape, half a surrogate pair, bytes that are not UTF-8.
[[nodiscard]] bool unescape(std::string& text);

}  // namespace korvane
