// A content package as it lies in its kind's directory: the archive, the files unpacked from it,
// and what it says about itself in "package.properties".
//
// Lifetime: a value; it keeps the archive's bytes. Threads: used by one at a time, under
// the content's lock (ContentParts).
// Errors: read() returns failed for what a retry may fix (a disk error) and refused for a package
// that is incomplete or not what it claims to be.
#pragma once

#include <string>

#include "archive/refusal.h"
#include "archive/zip_archive.h"
#include "update/content_kinds.h"

namespace korvane {

inline constexpr char kPackageProperties[] = "package.properties";

class ContentPackage {
 public:
  enum class Outcome { done, refused, failed };

  // Reads the archive in the kind's directory and holds every unpacked file against it. Where the
  // package has a "package.properties", the product named there is the kind's, and when it states
  // SHA-256 digests, every file has one and matches it.
  [[nodiscard]] Outcome read(const ContentParts& parts, const ContentKind& kind,
                             archive::Refusal& refusal);

  archive::ZipArchive archive() const { return {kContentArchive, _bytes}; }
  const std::string& digest() const { return _digest; }  // of the archive
  // "name=...; version=...; date=...; files=...; sha256=...", as the settings keep it.
  STRING metadata() const;
  // The same as lines of a properties file, with the directory the files were put into.
  std::string pointerText(const std::string& directory) const;

 private:
  [[nodiscard]] Outcome readArchive(platform::Files& files, const std::string& directory,
                                    archive::Refusal& refusal);
  [[nodiscard]] Outcome compareFiles(platform::Files& files, const std::string& directory,
                                     archive::Refusal& refusal);
  [[nodiscard]] Outcome compareFile(platform::Files& files, const std::string& directory,
                                    archive::ZipArchive& zip, const archive::Entry& entry,
                                    archive::Refusal& refusal);
  [[nodiscard]] bool checkProperties(const ContentKind& kind, archive::Refusal& refusal);

  std::string _bytes;
  std::string _digest;
  std::string _name;
  std::string _version;
  std::string _date;
  PropertyList _digests;  // file name and digest, of what was unpacked
};

}  // namespace korvane
