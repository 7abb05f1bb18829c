// One source policy made of a base policy and of policies for single applications.
//
// The archive has the base policy's entries as they are, and those of each application's archive
// below "applications/<application>/". So a source policy in force says by itself which
// applications it covers. docs/cloud.md has the rules.
//
// Value types and functions; nothing is kept. Threads: each object is used by one at a time.
// Errors: false, and the refusal says which archive and entry, and why.
//
//   SourceCombination combination;
//   if (combination.addBase(plus, refusal) && combination.addApplication("web", zip, refusal))
//     install(combination.finish());
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "archive/zip_archive.h"
#include "archive/zip_writer.h"

namespace korvane {

inline constexpr char kApplicationsFolder[] = "applications/";

// Size and checksum of an archive's files by name. Archives with equal sums count as the
// same policy.
using PolicySums = std::map<std::string, std::pair<uint64_t, uint32_t>>;
// By application.
using ApplicationSums = std::map<std::string, PolicySums>;

inline constexpr size_t kMaxApplications = 128;
// What one application's archive, and a whole source policy, may unpack to.
archive::Limits applicationLimits();
archive::Limits sourceLimits();

// Lower-case letters, digits, "-" and "_", at most 64, a letter or digit first, and no device's
// name: a file of that name can be had on every system.
bool isApplicationName(std::string_view name);

// Checks an application's archive as a whole, contents included. `application`: what
// refusals call it.
[[nodiscard]] bool checkApplication(const std::string& application, std::string_view archive,
                                    PolicySums& sums, archive::Refusal& refusal);
// What a source policy holds of applications; nothing for one that is not an archive.
ApplicationSums applicationsOf(std::string_view source);

class SourceCombination {
 public:
  using Wanted = std::function<bool(const std::string& application)>;

  // A policy that has applications of its own is refused unless it may: then they are left out.
  [[nodiscard]] bool addBase(std::string_view source, bool mayHaveApplications,
                             archive::Refusal& refusal);
  // Those applications of a source policy that are wanted.
  [[nodiscard]] bool addApplicationsOf(std::string_view source, const Wanted& wanted,
                                       archive::Refusal& refusal);
  [[nodiscard]] bool addApplication(const std::string& application, std::string_view archive,
                                    archive::Refusal& refusal);
  // The archive; the object is of no use afterwards.
  std::string finish() { return _writer.finish(); }

 private:
  archive::ZipWriter _writer{"the combined policy", sourceLimits()};
};

}  // namespace korvane
