// What signers say of a package, or of who signs from now on. docs/signed-content.md has the lines.
//
// Values that refer to the text they were read from, and functions. Threads: any.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "trust/signatures.h"

namespace korvane::trust {

enum class Kind { policy, idsPolicy, applicationPolicy, content, software, signers };

const char* nameOf(Kind kind);
[[nodiscard]] bool kindNamed(std::string_view name, Kind& out);

struct Sum {
  uint64_t size = 0;
  std::string_view sha256;
  std::string_view name;  // empty for the whole content
};

struct Manifest {
  Kind kind = Kind::policy;
  std::string_view name;  // 1 to 128 bytes of UTF-8 without control characters
  uint64_t version = 0;
  int64_t notBeforeMs = 0;  // since 1970-01-01 00:00:00 UTC
  int64_t notAfterMs = 0;
  unsigned minimumSigners = 1;
  // Of a package: the whole, and each entry when it is an archive.
  Sum content;
  std::vector<Sum> entries;
  // Of kind signers.
  Certificates signers;
};

// Into an empty manifest. 0, or the number of the line that is not as it should be; `out` is of no
// use then.
[[nodiscard]] size_t parseManifest(std::string_view text, Manifest& out);

}  // namespace korvane::trust
