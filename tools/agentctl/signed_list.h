// A signed list of checksums, as it lies beside released packages.
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

// `signers`: certificates in PEM, one or more, which decide alone (trust/signatures.h).
SignatureVerdict checkList(const std::string& list, const std::string& signature,
                           const std::string& signers);

// The SHA-256 of a file in a list as sha256sum prints it; nothing when the name does not stand
// there exactly once.
std::optional<std::string> digestOf(std::string_view list, std::string_view name);

}  // namespace korvane::agentctl
