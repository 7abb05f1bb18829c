// Whether the content of a signed package is what its manifest says: the whole, and for an archive
// each of its entries, none missing and none added.
//
// Pure; entries are read piece by piece. Threads: any.
#pragma once

#include <string_view>

#include "trust/manifest.h"
#include "trust/refusal.h"

namespace korvane::trust {

// False, and the refusal says which entry: mixed or changed.
[[nodiscard]] bool checkContents(const Manifest& manifest, std::string_view content,
                                 Refusal& refusal);

}  // namespace korvane::trust
