// Texts as they may be shown: a certificate, a server's answer or a file says nothing to a terminal that
// shows it and turns no reading direction. Used by whatever prints texts or keeps them to be printed.
// Pure; any thread.
//
//   terminalText("evil\u009b31m")  // "evil\\u009b31m"
#pragma once

#include <string>
#include <string_view>

namespace korvane {

// The controls of both sets and DEL as "\u009b", which JSON reads as the character itself, and the same
// for what turns the reading direction (U+061C, U+200E, U+200F, U+202A to U+202E, U+2066 to U+2069).
// Tabs and line feeds stay. Malformed UTF-8 becomes U+FFFD.
std::string terminalText(std::string_view utf8);

}  // namespace korvane
