#include "update/content_package.h"

#include <algorithm>
#include <cerrno>

#include "config/ini_text.h"
#include "config/properties_file.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "util/sha256.h"

namespace korvane {
namespace {

using archive::Fault;
using archive::Refusal;
using Outcome = ContentPackage::Outcome;

constexpr char kDigestPrefix[] = "sha256.";

Outcome refuse(const std::string& entry, std::string reason, Refusal& refusal) {
  refusal = {Fault::wrongContent, kContentArchive, entry, std::move(reason)};
  return Outcome::refused;
}

// A file that is not there, or another than it was, will not come back by itself.
Outcome unreadable(const std::string& path, int error, Refusal& refusal) {
  refusal = {Fault::fileOperation, kContentArchive, path, "cannot read", error};
  const bool lasting = error == ENOENT || error == EISDIR || error == ENOTDIR || error == EFBIG;
  return lasting ? Outcome::refused : Outcome::failed;
}

// Until the buffer is full or the file ends.
int readFull(platform::File& file, char* to, size_t size, size_t& got) {
  for (size_t more = 1; got < size && more > 0; got += more)
    if (const int error = file.read(to + got, size - got, more)) return error;
  return 0;
}

// The value on one line, without what separates the parts.
std::string plain(const STRING& value) {
  std::string text = value.toUtf8();
  std::replace(text.begin(), text.end(), ';', ',');
  return text;
}

}  // namespace

Outcome ContentPackage::read(const ContentParts& parts, const ContentKind& kind, Refusal& refusal) {
  const std::string directory = kind.directory(parts.files, parts.settings);
  _digests.clear();
  _name = kind.product;
  _version = _date = "";
  Outcome outcome = readArchive(parts.files, directory, refusal);
  if (outcome == Outcome::done) outcome = compareFiles(parts.files, directory, refusal);
  if (outcome != Outcome::done) return outcome;
  return checkProperties(kind, refusal) ? Outcome::done : Outcome::refused;
}

Outcome ContentPackage::readArchive(platform::Files& files, const std::string& directory,
                                    Refusal& refusal) {
  const std::string path = platform::joinPath(files, {directory, kContentArchive});
  const int error = platform::readWholeFile(files, path, kLargestContentArchive, _bytes);
  if (error) return unreadable(path, error, refusal);
  _digest = sha256Hex(_bytes);
  return Outcome::done;
}

Outcome ContentPackage::compareFiles(platform::Files& files, const std::string& directory,
                                     Refusal& refusal) {
  archive::ZipArchive zip = archive();
  if (!zip.open(refusal)) return Outcome::refused;
  for (const archive::Entry& entry : zip.entries()) {
    if (entry.isDirectory()) continue;
    const Outcome outcome = compareFile(files, directory, zip, entry, refusal);
    if (outcome != Outcome::done) return outcome;
  }
  return Outcome::done;
}

// Piece by piece: neither of the two is in memory.
Outcome ContentPackage::compareFile(platform::Files& files, const std::string& directory,
                                    archive::ZipArchive& zip, const archive::Entry& entry,
                                    Refusal& refusal) {
  std::string name = entry.name;
  std::replace(name.begin(), name.end(), '/', files.separator());
  const std::string path = platform::joinPath(files, {directory, name});
  std::unique_ptr<platform::File> file;
  if (const int error = files.open(path, platform::OpenMode::read, file))
    return unreadable(path, error, refusal);
  Sha256 digest;
  std::string unpacked;
  int error = 0;
  bool same = true;
  const auto compare = [&](std::string_view packed) {
    digest.add(packed);
    unpacked.resize(packed.size());
    size_t got = 0;
    error = readFull(*file, unpacked.data(), unpacked.size(), got);
    same = got == packed.size() && unpacked == packed;
    return error != 0 ? error : same ? 0 : ECANCELED;
  };
  const bool read = zip.read(entry, compare, refusal);
  if (error) return unreadable(path, error, refusal);
  if (!read && same) return Outcome::refused;
  char beyond;
  size_t more = 0;
  if (same && (error = file->read(&beyond, 1, more))) return unreadable(path, error, refusal);
  if (!same || more != 0) return refuse(entry.name, "the unpacked file differs", refusal);
  _digests.emplace_back(entry.name, digest.text());
  return Outcome::done;
}

bool ContentPackage::checkProperties(const ContentKind& kind, Refusal& refusal) {
  archive::ZipArchive zip = archive();
  std::string text;
  if (!zip.open(refusal)) return false;
  if (!zip.find(kPackageProperties)) return true;
  if (!zip.read(kPackageProperties, text, refusal)) return false;
  const PropertyList properties = parseProperties(text);
  const STRING product = propertyValue(properties, "package.name");
  if (!product.empty() && product != STRING(kind.product)) {
    refuse(kPackageProperties, "the package is \"" + product.toUtf8() + "\"", refusal);
    return false;
  }
  _version = plain(propertyValue(properties, "package.version"));
  _date = plain(propertyValue(properties, "package.date"));
  size_t stated = 0;
  for (const Property& pair : properties) {
    if (!pair.first.startsWith(kDigestPrefix)) continue;
    ++stated;
    const STRING file = pair.first.substr(sizeof kDigestPrefix - 1);
    if (propertyValue(_digests, file).equalsIgnoreCase(pair.second)) continue;
    refuse(file.toUtf8(), "the file is missing or has another SHA-256 than stated", refusal);
    return false;
  }
  if (stated == 0 || stated + 1 == _digests.size()) return true;
  refuse(kPackageProperties, "it states the SHA-256 of some files only", refusal);
  return false;
}

STRING ContentPackage::metadata() const {
  return "name=" + _name + "; version=" + _version + "; date=" + _date +
         "; files=" + std::to_string(_digests.size()) + "; sha256=" + _digest;
}

std::string ContentPackage::pointerText(const std::string& directory) const {
  return "package.directory=" + directory + "\npackage.name=" + _name +
         "\npackage.version=" + _version + "\npackage.date=" + _date +
         "\npackage.files=" + std::to_string(_digests.size()) + "\npackage.sha256=" + _digest +
         "\n";
}

}  // namespace korvane
