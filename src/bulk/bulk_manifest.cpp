#include "bulk/bulk_manifest.h"

#include <algorithm>
#include <array>
#include <set>

#include "bulk/line_reader.h"
#include "util/sha256.h"
#include "util/utf8.h"

namespace korvane::bulk {
namespace {

constexpr std::string_view kManifestLine = "korvane-bulk 1";
constexpr std::array<const char*, 5> kKinds = {"agent", "driver", "profile", "ids", "external"};
constexpr std::string_view kNoDigest = "-";
constexpr size_t kMaxEntryName = 200;
constexpr std::string_view kBundleBegin = "bulk-";
constexpr std::string_view kBundleEnd = ".zip";

bool isIdCharacter(char c) {
  return isDigit(c) || (c >= 'a' && c <= 'z');
}

bool isNameCharacter(char c) {
  return isIdCharacter(c) || (c >= 'A' && c <= 'Z') || c == '.' || c == '-' || c == '_';
}

// "<kind>/<digits>-<name>"
bool isEntryOf(Kind kind, std::string_view entry) {
  const std::string_view folder = nameOf(kind);
  if (!entry.starts_with(folder) || entry.size() <= folder.size() || entry[folder.size()] != '/')
    return false;
  const std::string_view name = entry.substr(folder.size() + 1);
  const size_t digits =
      static_cast<size_t>(std::find_if_not(name.begin(), name.end(), isDigit) - name.begin());
  return digits >= 2 && digits <= 4 && name.size() > digits + 1 && name[digits] == '-' &&
         name.size() <= digits + 1 + kMaxEntryName &&
         std::all_of(name.begin(), name.end(), isNameCharacter);
}

}  // namespace

const char* nameOf(Kind kind) {
  return kKinds[static_cast<size_t>(kind)];
}

std::optional<Kind> kindNamed(std::string_view name) {
  const auto found = std::find(kKinds.begin(), kKinds.end(), name);
  if (found == kKinds.end()) return std::nullopt;
  return static_cast<Kind>(found - kKinds.begin());
}

bool isId(std::string_view text) {
  return text.size() == kIdLength && std::all_of(text.begin(), text.end(), isIdCharacter);
}

bool isBundleName(std::string_view name) {
  if (name.size() != kBundleBegin.size() + kStampDigits + 1 + kIdLength + kBundleEnd.size() ||
      !name.starts_with(kBundleBegin) || !name.ends_with(kBundleEnd))
    return false;
  name = name.substr(kBundleBegin.size(), kStampDigits + 1 + kIdLength);
  const std::string_view stamp = name.substr(0, kStampDigits);
  return std::all_of(stamp.begin(), stamp.end(), isDigit) && name[kStampDigits] == '-' &&
         isId(name.substr(kStampDigits + 1));
}

std::string entryName(Kind kind, size_t number, std::string_view fileName) {
  if (fileName.size() > kMaxEntryName) fileName.remove_prefix(fileName.size() - kMaxEntryName);
  std::string name(fileName);
  std::replace_if(
      name.begin(), name.end(), [](char c) { return !isNameCharacter(c); }, '_');
  // No system stores a dot at the end of a name.
  if (name.empty()) name = "_";
  if (name.back() == '.') name.back() = '_';
  return std::string(nameOf(kind)) + (number < 10 ? "/0" : "/") + std::to_string(number) + "-" +
         name;
}

bool fitsLine(std::string_view path) {
  return !path.empty() && path.size() <= kMaxPathBytes && isValidUtf8(path) &&
         std::none_of(path.begin(), path.end(),
                      [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

std::string partText(const Part& part) {
  std::string text = part.entry;
  for (const std::string& field :
       {std::string(nameOf(part.kind)), part.log, std::to_string(part.from),
        std::to_string(part.to), std::to_string(part.size), std::to_string(part.modifiedMs),
        part.digest.empty() ? std::string(kNoDigest) : part.digest, part.path})
    text.append(" ").append(field);
  return text;
}

bool parsePart(std::string_view text, Part& out) {
  Part part;
  FieldReader fields(text);
  part.entry = fields.word();
  const std::optional<Kind> kind = kindNamed(fields.word());
  part.log = fields.word();
  if (!fields.number(part.from) || !fields.number(part.to) || !fields.number(part.size) ||
      !fields.number(part.modifiedMs))
    return false;
  const std::string_view digest = fields.word();
  part.path = fields.rest();
  if (!kind || !isEntryOf(*kind, part.entry) || !isId(part.log) || part.from >= part.to ||
      part.to > part.size || !fitsLine(part.path))
    return false;
  if (digest != kNoDigest) {
    if (!isHex(digest, kSha256Digits)) return false;
    part.digest = digest;
  }
  part.kind = *kind;
  out = std::move(part);
  return true;
}

std::string manifestText(const Manifest& manifest) {
  std::string text(kManifestLine);
  text.append("\nbundle=").append(manifest.bundle).append("\n");
  for (const Part& part : manifest.parts) text.append("part=").append(partText(part)).append("\n");
  return text + "end=" + std::to_string(manifest.parts.size()) + "\n";
}

bool parseManifest(std::string_view text, Manifest& out) {
  if (text.size() > kMaxManifestBytes) return false;
  Manifest manifest;
  LineReader lines(text);
  std::string_view value;
  if (lines.line() != kManifestLine || !valueOf(lines.line(), "bundle", value) ||
      !isBundleName(value))
    return false;
  manifest.bundle = value;
  std::set<std::string, std::less<>> entries;
  std::string_view line = lines.line();
  for (; valueOf(line, "part", value); line = lines.line()) {
    Part part;
    if (manifest.parts.size() == kMaxParts || !parsePart(value, part) ||
        !entries.insert(part.entry).second)
      return false;
    manifest.parts.push_back(std::move(part));
  }
  uint64_t count = 0;
  if (!valueOf(line, "end", value) || !FieldReader(value).number(count) ||
      value != std::to_string(manifest.parts.size()) || count == 0 || !lines.atEnd())
    return false;
  out = std::move(manifest);
  return true;
}

}  // namespace korvane::bulk
