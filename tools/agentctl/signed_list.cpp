#include "agentctl/signed_list.h"

#include "trust/signatures.h"
#include "util/sha256.h"

namespace korvane::agentctl {

SignatureVerdict checkList(const std::string& list, const std::string& signature,
                           const std::string& signers) {
  const trust::Certificates trusted = trust::certificatesOf(signers);
  if (trusted.empty()) return {{}, "no trusted signer: the file has no certificate"};
  const trust::SignatureCheck found = trust::checkSignature(list, signature, trusted);
  if (!found.good.empty()) return {found.good[0], {}};
  if (!found.readable)
    return {{}, "SHA256SUMS.p7s is no signature of this list: it is no CMS message"};
  if (found.bad.empty()) return {{}, "the list was signed by none of the trusted signers"};
  return {{}, "SHA256SUMS.p7s is no signature of this list by " + found.bad[0]};
}

std::optional<std::string> digestOf(std::string_view list, std::string_view name) {
  std::optional<std::string> found;
  while (!list.empty()) {
    const size_t end = list.find('\n');
    const std::string_view line = list.substr(0, end);
    list.remove_prefix(end == std::string_view::npos ? list.size() : end + 1);
    constexpr std::string_view kBetween = "  ";
    constexpr size_t kDigest = kSha256Digits;
    if (line.size() <= kDigest || !line.substr(kDigest).starts_with(kBetween) ||
        line.substr(kDigest + kBetween.size()) != name)
      continue;
    if (found) return std::nullopt;
    found = line.substr(0, kDigest);
  }
  return found;
}

}  // namespace korvane::agentctl
