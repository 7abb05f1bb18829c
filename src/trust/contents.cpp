#include "trust/contents.h"

#include <algorithm>

#include "archive/zip_archive.h"
#include "util/sha256.h"

namespace korvane::trust {
namespace {

bool refuse(Reason reason, std::initializer_list<std::string_view> text, Refusal& refusal) {
  refusal = {reason, joined(text)};
  return false;
}

bool checkEntry(archive::ZipArchive& zip, const archive::Entry& entry, const Sum& sum,
                Refusal& refusal) {
  archive::Refusal fault;
  Sha256 digest;
  const bool read = entry.size == sum.size && zip.read(
                                                  entry,
                                                  [&digest](std::string_view piece) {
                                                    digest.add(piece);
                                                    return 0;
                                                  },
                                                  fault);
  if (read && digest.text() == sum.sha256) return true;
  return refuse(Reason::changed,
                {"entry ", entry.name, " is not the one that was signed",
                 fault.reason.empty() ? "" : ": ", fault.reason},
                refusal);
}

bool checkEntries(archive::ZipArchive& zip, const std::vector<Sum>& sums, Refusal& refusal) {
  for (const Sum& sum : sums) {
    const archive::Entry* entry = zip.find(sum.name);
    if (!entry) return refuse(Reason::mixed, {"entry ", sum.name, " is missing"}, refusal);
    if (!checkEntry(zip, *entry, sum, refusal)) return false;
  }
  for (const archive::Entry& entry : zip.entries()) {
    const auto isNamed = [&entry](const Sum& sum) { return sum.name == entry.name; };
    if (!entry.isDirectory() && std::none_of(sums.begin(), sums.end(), isNamed))
      return refuse(Reason::mixed, {"entry ", entry.name, " is not of the manifest"}, refusal);
  }
  return true;
}

}  // namespace

bool checkContents(const Manifest& manifest, std::string_view content, Refusal& refusal) {
  archive::ZipArchive zip("the content", content);
  archive::Refusal fault;
  const bool opened = zip.open(fault);
  if (!opened && !manifest.entries.empty())
    return refuse(Reason::changed, {"the archive is not the one that was signed: ", fault.reason},
                  refusal);
  if (opened && !checkEntries(zip, manifest.entries, refusal)) return false;
  if (content.size() == manifest.content.size && sha256Hex(content) == manifest.content.sha256)
    return true;
  return refuse(Reason::changed,
                {opened ? "the archive differs from the one that was signed outside of its entries"
                        : "the content has not the SHA-256 that was signed"},
                refusal);
}

}  // namespace korvane::trust
