// The pieces that the textual registry format is made of: names, quoted texts and values. Used by
// RegDocument and its parser only. Pure functions; nothing here throws or keeps state.
#pragma once

#include <string>
#include <string_view>

#include "platform/reg_text.h"

namespace korvane::platform {

inline constexpr std::string_view kUtf8Mark = "\xEF\xBB\xBF";
inline constexpr std::string_view kUtf16Mark = "\xFF\xFE";

// ASCII letters in lower case; what names are compared by.
std::string foldRegName(std::string_view text);
bool sameRegName(std::string_view a, std::string_view b);
// The path without backslashes at either end.
std::string_view trimRegPath(std::string_view path);

// True for a text that may name a key or a value: UTF-8 without control characters.
bool isRegName(std::string_view text);

// Takes a quoted text with its escapes (\\ and \") from the front of `rest`; false when it does not
// end.
[[nodiscard]] bool parseRegQuoted(std::string_view& rest, std::string& out);

// Reads what follows the "=" into `item`: a quoted text, "dword:" with 1 to 8 hex digits, hex(1)
// and hex(4) with the bytes of the same types; any other "hex:" or "hex(n):" is kept verbatim.
// False for anything else.
[[nodiscard]] bool readRegValue(std::string_view value, RegItem& item);

// Appends the item's line. A string that cannot stand between quotation marks (line ends, control
// characters, unpaired surrogates) is written as hex(1).
void appendRegItem(std::string& out, const RegItem& item, std::string_view lineEnd);

}  // namespace korvane::platform
