// Discovery definitions: a refusal has its place, and what is accepted keeps to its bounds.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "discovery/definition.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

bool isWithinBounds(const korvane::FileRoot& files) {
  const auto filled = [](const std::string& text) { return !text.empty(); };
  return filled(files.root) && files.depth <= 64 && files.minSize <= files.maxSize &&
         files.excluded.size() <= 64 && !files.patterns.empty() &&
         std::all_of(files.patterns.begin(), files.patterns.end(), filled) &&
         std::all_of(files.excluded.begin(), files.excluded.end(), filled);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const int format : {1, 2}) {
    korvane::Definition read;
    const std::string refusal = readDefinition(text, format, read);
    if (!refusal.empty()) {
      require(refusal.starts_with("line ") && refusal.find(", column ") != std::string::npos);
      continue;
    }
    require(text.find("<!DOCTYPE") == std::string_view::npos ||
            text.find("<!--") != std::string_view::npos ||
            text.find("<?") != std::string_view::npos);
    require(read.files.size() <= 256 && read.registry.size() <= 256);
    require(std::all_of(read.files.begin(), read.files.end(), isWithinBounds));
    require(read.limits.share >= 1 && read.limits.share <= 100 && read.limits.rows >= 1);
    require(format == 2 || read.registry.empty());
    require(merged(read, read).files.size() == read.files.size());
    for (const korvane::FileRoot& files : read.files)
      for (const std::string& pattern : files.patterns) {
        const bool fold = korvane::matchesPattern(files.root, pattern, true);
        require(fold || !korvane::matchesPattern(files.root, pattern, false));
      }
  }
  return 0;
}
