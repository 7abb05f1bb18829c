#include "trust/envelope.h"

#include <algorithm>

#include "trust/signatures.h"

namespace korvane::trust {
namespace {

constexpr std::string_view kAnyVersion = "korvane-signed ";
constexpr std::string_view kEnvelopeHeading = "korvane-signed 1\n";
constexpr std::string_view kStatement = "statement ";
constexpr std::string_view kContent = "content ";
constexpr size_t kMaxDigits = 18;

bool cut(uint64_t size, std::string_view& rest, std::string_view& out) {
  if (size > rest.size()) return false;
  out = rest.substr(0, static_cast<size_t>(size));
  rest.remove_prefix(out.size());
  return true;
}

bool parseStatement(std::string_view sizes, std::string_view& rest, Statement& out) {
  std::string_view first;
  uint64_t manifest = 0, signature = 0;
  return cutUntil(' ', sizes, first) && parseNumber(first, manifest) &&
         parseNumber(sizes, signature) && manifest <= kMaxManifestBytes &&
         signature <= kMaxSignatureBytes && cut(manifest, rest, out.manifest) &&
         cut(signature, rest, out.signature);
}

}  // namespace

bool isEnvelope(std::string_view bytes) {
  return bytes.starts_with(kAnyVersion);
}

bool parseEnvelope(std::string_view bytes, Envelope& out) {
  if (!bytes.starts_with(kEnvelopeHeading)) return false;
  bytes.remove_prefix(kEnvelopeHeading.size());
  std::string_view line;
  while (cutUntil('\n', bytes, line)) {
    if (line.starts_with(kContent)) {
      uint64_t size = 0;
      if (!parseNumber(line.substr(kContent.size()), size) || size != bytes.size()) return false;
      if (out.statements.empty()) return false;
      out.content = bytes;
      return true;
    }
    Statement statement;
    if (!line.starts_with(kStatement) || out.statements.size() == kMaxStatements ||
        !parseStatement(line.substr(kStatement.size()), bytes, statement))
      return false;
    out.statements.push_back(statement);
  }
  return false;
}

bool parseNumber(std::string_view text, uint64_t& out) {
  if (text.empty() || text.size() > kMaxDigits || (text[0] == '0' && text.size() > 1)) return false;
  uint64_t number = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') return false;
    number = number * 10 + static_cast<uint64_t>(c - '0');
  }
  out = number;
  return true;
}

bool cutUntil(char end, std::string_view& rest, std::string_view& out) {
  const size_t at = rest.find(end);
  if (at == std::string_view::npos) return false;
  out = rest.substr(0, at);
  rest.remove_prefix(at + 1);
  return true;
}

}  // namespace korvane::trust
