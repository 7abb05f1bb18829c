// Signatures with any content, and trusted signers with any content: the first statement of the
// input has the signers in PEM, the second what is signed and its signature. No signature that
// holds holds for another content.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "trust/envelope.h"
#include "trust/signatures.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane::trust;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  Envelope envelope;
  if (!parseEnvelope(bytes, envelope) || envelope.statements.size() < 2) {
    // Without its frame: any bytes as a certificate and as a signature.
    if (isCertificate(bytes) && subjectOf(bytes).size() > size * 8) std::abort();
    if (!checkSignature("content", bytes, {}).good.empty()) std::abort();
    return 0;
  }
  const Certificates trusted = certificatesOf(envelope.statements[0].manifest);
  const Statement& statement = envelope.statements[1];
  const SignatureCheck found = checkSignature(statement.manifest, statement.signature, trusted);
  if (found.good.size() > trusted.size() || (!found.good.empty() && !found.readable)) std::abort();
  if (found.good.empty()) return 0;
  const std::string other = std::string(statement.manifest) + "x";
  if (!checkSignature(other, statement.signature, trusted).good.empty()) std::abort();
  if (!checkSignature(statement.manifest, statement.signature, {}).good.empty()) std::abort();
  return 0;
}
