// A signed package as it is delivered: statements, each a manifest and its signature, and the
// content that the last of them is about. docs/signed-content.md has the format.
//
// Values that refer to the bytes they were read from. Threads: any.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace korvane::trust {

inline constexpr size_t kMaxStatements = 16;
inline constexpr size_t kMaxManifestBytes = 2 * 1024 * 1024;

struct Statement {
  std::string_view manifest;
  std::string_view signature;
};

struct Envelope {
  std::vector<Statement> statements;  // one at least
  std::string_view content;
};

// Whether it means to be one; anything else is content without a signature.
bool isEnvelope(std::string_view bytes);
// Into an empty one. False, and `out` of no use, for one that is not whole, or goes on after its end.
[[nodiscard]] bool parseEnvelope(std::string_view bytes, Envelope& out);

// A decimal number without signs or leading zeros, of 18 digits at most.
[[nodiscard]] bool parseNumber(std::string_view text, uint64_t& out);
// Takes what stands before the first `end` off `rest`, and `end` itself; false when it is not there.
[[nodiscard]] bool cutUntil(char end, std::string_view& rest, std::string_view& out);

}  // namespace korvane::trust
