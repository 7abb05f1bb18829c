// What a discovery definition says (docs/discovery.md), and how it is read. Value types; pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

namespace korvane {

inline constexpr size_t kMaxDefinitionBytes = 256 * 1024;

struct FileRoot {
  std::string root;
  std::vector<std::string> patterns{"*"};
  std::vector<std::string> excluded;
  size_t depth = 64;
  uint64_t minSize = 0, maxSize = std::numeric_limits<int64_t>::max();
  bool hash = true, fileVersion = true, signer = false;
  uint64_t hashLimit = 100 * 1024 * 1024;
};

struct RegistryRoot {
  std::string key;
  size_t depth = 0;
  std::string value = "*";
};

struct DiscoveryLimits {
  unsigned share = 10;  // percent of one core
  uint64_t rows = 1000000;
  uint64_t seconds = 86400;
};

struct Definition {
  bool applications = false, services = false, processes = false, ports = false, shortcuts = false;
  std::vector<FileRoot> files;
  std::vector<RegistryRoot> registry;
  DiscoveryLimits limits;
};

// Reads one of format 1 or 2. Gives "line L, column C: reason", and leaves `out`, when it is refused.
std::string readDefinition(std::string_view text, int format, Definition& out);

// What either asks for, the second one first in doubt.
Definition merged(const Definition& first, Definition second);

// `*` any characters, `?` one. foldCase: ASCII letters are the same in both cases.
bool matchesPattern(std::string_view text, std::string_view pattern, bool foldCase);

// Whether a path below the root, or its last part, is excluded.
bool isExcluded(const FileRoot& root, std::string_view relative, std::string_view name,
                bool foldCase);

}  // namespace korvane
