#include "translate-stand-in/source_archive.h"

#include "archive/zip_archive.h"
#include "archive/zip_writer.h"
#include "stand-in-policy/policy_model.h"

namespace korvane::translate_stand_in {
std::string packPolicy(std::string_view text) {
  archive::ZipWriter zip(kPolicyEntry);
  archive::Refusal refusal;
  zip.add(kPolicyEntry, text, refusal);
  return zip.finish();
}

bool unpackPolicy(const std::string& name, std::string_view bytes, std::string& text,
                  std::string& reason) {
  archive::Limits limits;
  limits.totalBytes = 16 * KVP_MAX_TEXT_BYTES;
  archive::ZipArchive zip(name, bytes, limits);
  archive::Refusal refusal;
  if (zip.open(refusal) && zip.read(kPolicyEntry, text, refusal)) return true;
  reason = refusal.text();
  return false;
}

}  // namespace korvane::translate_stand_in
