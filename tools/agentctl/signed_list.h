// The signature over a list of checksums: a detached CMS message in DER. The certificates that are
// handed in decide alone: none of the message's own, none of the system's, and no dates.
//
// Pure functions; nothing is read or written. Errors: std::nullopt or a text, never thrown.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace korvane::agentctl {

struct SignatureVerdict {
  std::string signer;   // the subject of whoever signed, on one line; empty when it does not hold
  std::string refusal;  // why it does not hold; empty when it does
};

// `signers`: certificates in PEM, one or more.
SignatureVerdict checkSignature(const std::string& list, const std::string& signature,
                                const std::string& signers);

// The SHA-256 of a file in a list as sha256sum prints it; nothing when the name does not stand
// there exactly once.
std::optional<std::string> digestOf(std::string_view list, std::string_view name);

}  // namespace korvane::agentctl
