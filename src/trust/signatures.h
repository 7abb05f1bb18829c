// Detached CMS signatures. The certificates that are handed in decide alone: none that the message
// carries, none of the system's, and no dates.
//
// Pure functions; nothing is read or written, nothing is thrown but std::bad_alloc. Threads: any.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace korvane::trust {

// Each in DER.
using Certificates = std::vector<std::string>;

inline constexpr size_t kMaxSignatureBytes = 64 * 1024;
inline constexpr size_t kMaxSigners = 16;  // of one message, and of one set of trusted signers

// Those of a PEM text; what stands between them is passed over, what is beyond kMaxSigners left.
Certificates certificatesOf(std::string_view pem);
bool isCertificate(std::string_view der);
// The subject on one line; empty for what is no certificate.
std::string subjectOf(std::string_view der);

struct SignatureCheck {
  bool readable = false;  // it is a CMS message with signatures
  // The subjects of the trusted signers whose signature holds, once for each of their keys, and of
  // those whose signature does not.
  std::vector<std::string> good;
  std::vector<std::string> bad;
};

// Signers who are not trusted count neither way. A signer is found by the issuer and number of the
// certificate, the digest is one of the SHA-2 family.
SignatureCheck checkSignature(std::string_view content, std::string_view signature,
                              const Certificates& trusted);

}  // namespace korvane::trust
