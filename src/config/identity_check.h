// What the settings of the server's identity may hold, and what they say then. Pure; any thread.
//
//   identityFault(Key::sslMinimumVersion, "1.4")  // "is neither 1.2 nor 1.3"
//   listOf(" a, b,")                              // "a", "b"
#pragma once

#include <string>
#include <vector>

#include "config/settings_table.h"
#include "util/string.h"

namespace korvane {

// Of ssl.server.names, ssl.server.pins or ssl.minimum.version; empty for a value that can be used,
// an empty one among them.
std::string identityFault(Key key, const STRING& value);
// The entries of such a list: separated by commas, without the blanks around them and empty ones.
std::vector<std::string> listOf(const STRING& value);

}  // namespace korvane
