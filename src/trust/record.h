// What was accepted so far, in one small file: the highest version of each kind and name, the
// highest that was seen to be expired, and who signs since signers were replaced.
//
// Crash rule: the file is written whole, beside the old one, and put in its place, before anything
// that it records is used. So it is never behind what was accepted, and never damaged by a crash.
// docs/file-formats.md has its lines.
//
// A value and functions. Errors: 0 or an errno value; EBADMSG for a file that is not whole.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/fwd.h"
#include "trust/manifest.h"

namespace korvane::trust {

inline constexpr size_t kMaxRecordedNames = 1024;
inline constexpr uint64_t kMaxRecordBytes = 1 << 20;

struct VersionMark {
  Kind kind = Kind::policy;
  std::string name;
  uint64_t version = 0;  // the highest that was accepted
  uint64_t expired = 0;  // the highest that was seen to be expired

  friend bool operator==(const VersionMark&, const VersionMark&) = default;
};

struct Record {
  // The SHA-256 of the file of trusted signers that the rest of the signers began with; when
  // that file changes, they are forgotten.
  std::string anchor;
  uint64_t signersVersion = 0;
  Certificates signers;   // empty: those of the file
  Certificates replaced;  // who signed before, the latest first
  std::vector<VersionMark> versions;

  // Null when there is none yet.
  VersionMark* find(Kind kind, std::string_view name);

  friend bool operator==(const Record&, const Record&) = default;
};

std::string recordText(const Record& record);
// Both into an empty record, which is of no use when they fail; no file leaves it empty.
[[nodiscard]] bool parseRecord(std::string_view text, Record& out);

[[nodiscard]] int readRecord(platform::Files& files, const std::string& path, Record& out);
// Durable when it returns 0.
[[nodiscard]] int writeRecord(platform::Files& files, const std::string& path,
                              const Record& record);

}  // namespace korvane::trust
