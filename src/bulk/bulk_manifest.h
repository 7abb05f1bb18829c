// The parts of logs that a bundle holds: the text of its "manifest.txt" and of the lines about them
// in the state file (docs/bulk-logs.md). Pure functions over bytes; any thread.
//
// Errors: a text that is not wholly a manifest is none. Units: bytes; times are milliseconds since
// 1970-01-01 UTC.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::bulk {

inline constexpr char kManifestName[] = "manifest.txt";
inline constexpr size_t kMaxManifestBytes = 4u << 20;
inline constexpr size_t kMaxParts = 1000;
inline constexpr size_t kMaxPathBytes = 4096;
inline constexpr size_t kIdLength = 12;

enum class Kind { agent, driver, profile, ids, external };

const char* nameOf(Kind kind);
std::optional<Kind> kindNamed(std::string_view name);

struct Part {
  std::string entry;  // in the archive
  Kind kind = Kind::agent;
  std::string log;  // identifier, kIdLength letters and digits
  uint64_t from = 0;
  uint64_t to = 0;  // not included
  uint64_t size = 0;
  int64_t modifiedMs = 0;
  std::string digest;  // empty: none was asked for
  std::string path;

  friend bool operator==(const Part&, const Part&) = default;
};

struct Manifest {
  std::string bundle;
  std::vector<Part> parts;

  friend bool operator==(const Manifest&, const Manifest&) = default;
};

std::string manifestText(const Manifest& manifest);
// False, and `out` as it was, for a text that is not a whole manifest.
[[nodiscard]] bool parseManifest(std::string_view text, Manifest& out);

// kIdLength lower-case letters and digits.
bool isId(std::string_view text);
// "bulk-<17 digits>-<12 letters and digits>.zip"
bool isBundleName(std::string_view name);
// The entry of the `number`th part, from 1.
std::string entryName(Kind kind, size_t number, std::string_view fileName);
// A path that a line can hold.
bool fitsLine(std::string_view path);

// The value of a "part=" line and back.
std::string partText(const Part& part);
[[nodiscard]] bool parsePart(std::string_view text, Part& out);

}  // namespace korvane::bulk
