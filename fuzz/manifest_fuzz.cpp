// Signed packages, their manifests and the record of what was accepted: what is taken for whole is
// within its bounds, and a record is read back as it was.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "trust/contents.h"
#include "trust/envelope.h"
#include "trust/record.h"

namespace {

void require(bool holds) {
  if (!holds) std::abort();
}

void readManifest(std::string_view text, std::string_view content) {
  using namespace korvane::trust;
  Manifest manifest;
  if (parseManifest(text, manifest) != 0) return;
  require(manifest.version > 0 && manifest.notBeforeMs <= manifest.notAfterMs);
  require(manifest.minimumSigners >= 1 && manifest.minimumSigners <= kMaxSigners);
  require((manifest.kind == Kind::signers) == !manifest.signers.empty());
  require(manifest.name.find('\n') == std::string::npos);
  Refusal refusal;
  const bool same = checkContents(manifest, content, refusal);
  require(same == (refusal.reason == Reason::none));
  require(!same || content.size() == manifest.content.size);
  Record record{"", manifest.version, manifest.signers, {}, {}};
  record.versions.push_back({manifest.kind, std::string(manifest.name), manifest.version, 0});
  Record again;
  require(parseRecord(recordText(record), again) && again == record);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane::trust;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  Envelope envelope;
  if (parseEnvelope(bytes, envelope)) {
    require(isEnvelope(bytes) && !envelope.statements.empty());
    for (const Statement& statement : envelope.statements)
      readManifest(statement.manifest, envelope.content);
  }
  readManifest(bytes, bytes);
  Record record, again;
  if (parseRecord(bytes, record))
    require(parseRecord(recordText(record), again) && again == record);
  return 0;
}
