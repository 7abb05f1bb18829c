#include "translate-stand-in/source_archive.h"

#include <set>
#include <stdexcept>

#include "archive/zip_archive.h"
#include "archive/zip_writer.h"
#include "stand-in-policy/policy_model.h"

namespace korvane::translate_stand_in {
namespace {

constexpr std::string_view kApplications = "applications/";

// Where the text of each application that the archive has something of must be.
std::set<std::string> applicationEntries(const archive::ZipArchive& zip) {
  std::set<std::string> entries;
  for (const archive::Entry& entry : zip.entries()) {
    if (!entry.name.starts_with(kApplications) || entry.name.size() == kApplications.size())
      continue;
    const size_t end = entry.name.find('/', kApplications.size());
    entries.insert(entry.name.substr(0, end) + "/" + kPolicyEntry);
  }
  return entries;
}

}  // namespace
std::string packPolicy(std::string_view text) {
  archive::ZipWriter zip(kPolicyEntry);
  archive::Refusal refusal;
  if (!zip.add(kPolicyEntry, text, refusal)) throw std::runtime_error(refusal.text());
  return zip.finish();
}

bool unpackPolicy(const std::string& name, std::string_view bytes, Source& source,
                  std::string& reason) {
  archive::Limits limits;
  limits.totalBytes = 16 * KVP_MAX_TEXT_BYTES;
  archive::ZipArchive zip(name, bytes, limits);
  archive::Refusal refusal;
  source = {};
  bool good = zip.open(refusal) && zip.read(kPolicyEntry, source.text, refusal);
  for (const std::string& entry : applicationEntries(zip)) {
    ApplicationPart part{entry, {}};
    good = good && zip.read(entry, part.text, refusal);
    source.applications.push_back(std::move(part));
  }
  if (!good) reason = refusal.text();
  return good;
}

}  // namespace korvane::translate_stand_in
