// Properties files: key=value lines in UTF-8, "#" begins a comment line, no escapes. Blanks around
// keys and values are dropped; the first of several lines with one key counts.
#pragma once

#include <string>
#include <string_view>

#include "platform/fwd.h"
#include "util/property_list.h"

namespace korvane {

// 0 or an errno value; EFBIG for a file beyond 4 MiB. `out` is only touched on success.
[[nodiscard]] int readPropertiesFile(platform::Files& files, const std::string& path,
                                     PropertyList& out);
PropertyList parseProperties(std::string_view text);

}  // namespace korvane
