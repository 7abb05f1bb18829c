#include "cloud/source_combination.h"

#include <algorithm>

#include "archive/entry_name.h"
#include "platform/names.h"
#include "util/utf8.h"

namespace korvane {
namespace {

using archive::Entry;
using archive::Fault;
using archive::Refusal;
using archive::ZipArchive;

constexpr size_t kMaxNameLength = 64;
constexpr std::string_view kCombinationFolder = kApplicationsFolder;

bool isLetterOrDigit(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
}

// In whatever case: an entry that some system puts there.
bool isBelowFolder(const std::string& entry) {
  const std::u16string folder = utf8ToUtf16(kCombinationFolder);
  return platform::compareNames(utf8ToUtf16(entry).substr(0, folder.size()), folder) == 0;
}

// Of "applications/web/a.txt": "web" and "a.txt"; false for an entry of the base policy.
bool splitEntry(const std::string& entry, std::string& application, std::string& rest) {
  if (!entry.starts_with(kCombinationFolder)) return false;
  const size_t slash = std::min(entry.find('/', kCombinationFolder.size()), entry.size());
  application = entry.substr(kCombinationFolder.size(), slash - kCombinationFolder.size());
  rest = entry.substr(std::min(slash + 1, entry.size()));
  return true;
}

bool copy(ZipArchive& from, const Entry& entry, archive::ZipWriter& to, const std::string& name,
          Refusal& refusal) {
  std::string content;
  return from.read(entry, content, refusal) && to.add(name, content, refusal);
}

bool refuse(std::string archive, const std::string& entry, std::string reason, Refusal& refusal) {
  refusal = {Fault::badName, std::move(archive), entry, std::move(reason), 0};
  return false;
}

}  // namespace

archive::Limits applicationLimits() {
  return {.entries = 256, .totalBytes = 16u << 20};
}

archive::Limits sourceLimits() {
  return {.entries = 4096, .totalBytes = 64u << 20};
}

bool isApplicationName(std::string_view name) {
  std::string reason;
  return !name.empty() && name.size() <= kMaxNameLength && isLetterOrDigit(name[0]) &&
         std::all_of(name.begin(), name.end(),
                     [](char c) { return isLetterOrDigit(c) || c == '-' || c == '_'; }) &&
         archive::checkEntryName(name, reason) == Fault::none;
}

bool checkApplication(const std::string& application, std::string_view archive, PolicySums& sums,
                      Refusal& refusal) {
  sums.clear();
  ZipArchive zip(application, archive, applicationLimits());
  if (!zip.open(refusal) || !zip.verify(refusal)) return false;
  for (const Entry& entry : zip.entries())
    if (!entry.isDirectory()) sums[entry.name] = {entry.size, entry.crc};
  if (!sums.empty()) return true;
  refusal = {Fault::missingEntry, application, "", "it contains no files", 0};
  return false;
}

ApplicationSums applicationsOf(std::string_view source) {
  ApplicationSums sums;
  ZipArchive zip("the policy", source, sourceLimits());
  Refusal refusal;
  if (!zip.open(refusal)) return sums;
  std::string application, rest;
  for (const Entry& entry : zip.entries())
    if (!entry.isDirectory() && splitEntry(entry.name, application, rest))
      sums[application][rest] = {entry.size, entry.crc};
  return sums;
}

bool SourceCombination::addBase(std::string_view source, bool mayHaveApplications,
                                Refusal& refusal) {
  ZipArchive zip("the policy", source, sourceLimits());
  if (!zip.open(refusal)) return false;
  for (const Entry& entry : zip.entries()) {
    if (isBelowFolder(entry.name)) {
      if (mayHaveApplications) continue;
      return refuse(zip.name(), entry.name,
                    "a base policy must have no entries below \"applications/\"", refusal);
    }
    if (!entry.isDirectory() && !copy(zip, entry, _writer, entry.name, refusal)) return false;
  }
  return true;
}

bool SourceCombination::addApplicationsOf(std::string_view source, const Wanted& wanted,
                                          Refusal& refusal) {
  ZipArchive zip("the policy in force", source, sourceLimits());
  if (!zip.open(refusal)) return false;
  std::string application, rest;
  for (const Entry& entry : zip.entries()) {
    if (entry.isDirectory() || !splitEntry(entry.name, application, rest) || !wanted(application))
      continue;
    if (!copy(zip, entry, _writer, entry.name, refusal)) return false;
  }
  return true;
}

bool SourceCombination::addApplication(const std::string& application, std::string_view archive,
                                       Refusal& refusal) {
  ZipArchive zip(application, archive, applicationLimits());
  if (!zip.open(refusal)) return false;
  const std::string folder = kApplicationsFolder + application + "/";
  for (const Entry& entry : zip.entries())
    if (!entry.isDirectory() && !copy(zip, entry, _writer, folder + entry.name, refusal))
      return false;
  return true;
}

}  // namespace korvane
