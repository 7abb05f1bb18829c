#include "trust/record.h"

#include <openssl/evp.h>

#include <cerrno>

#include "platform/files.h"
#include "platform/paths.h"
#include "trust/envelope.h"
#include "trust/refusal.h"
#include "util/base64.h"
#include "util/sha256.h"

namespace korvane::trust {
namespace {

constexpr std::string_view kRecordHeading = "korvane-trust 1\n";
constexpr std::string_view kRecordEnd = "end ";

std::string base64Of(std::string_view bytes) {
  std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
  EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                  reinterpret_cast<const unsigned char*>(bytes.data()),
                  static_cast<int>(bytes.size()));
  text.pop_back();
  return text;
}

bool takeSigner(std::string_view text, Certificates& out) {
  std::string der;
  if (out.size() == kMaxSigners || !decodeBase64(text, der) || !isCertificate(der)) return false;
  out.push_back(std::move(der));
  return true;
}

bool takeVersion(std::string_view text, std::vector<VersionMark>& out) {
  std::string_view kind, version, expired;
  VersionMark mark;
  if (out.size() == kMaxRecordedNames || !cutUntil(' ', text, kind) ||
      !kindNamed(kind, mark.kind) || !cutUntil(' ', text, version) ||
      !parseNumber(version, mark.version) || !cutUntil(' ', text, expired) ||
      !parseNumber(expired, mark.expired) || text.empty())
    return false;
  mark.name = text;
  out.push_back(std::move(mark));
  return true;
}

bool nextLine(std::string_view line, Record& out) {
  std::string_view word;
  if (!cutUntil(' ', line, word)) return false;
  if (word == "signers") return parseNumber(line, out.signersVersion);
  if (word == "signer") return takeSigner(line, out.signers);
  if (word == "replaced") return takeSigner(line, out.replaced);
  if (word == "version") return takeVersion(line, out.versions);
  if (word != "anchor") return false;
  out.anchor = line;
  return true;
}

}  // namespace

VersionMark* Record::find(Kind kind, std::string_view name) {
  for (VersionMark& mark : versions)
    if (mark.kind == kind && mark.name == name) return &mark;
  return nullptr;
}

std::string recordText(const Record& record) {
  std::string text(kRecordHeading);
  text += joined({"anchor ", record.anchor, "\nsigners ", numeral(record.signersVersion), "\n"});
  for (const std::string& der : record.signers) text += joined({"signer ", base64Of(der), "\n"});
  for (const std::string& der : record.replaced) text += joined({"replaced ", base64Of(der), "\n"});
  for (const VersionMark& mark : record.versions)
    text += joined({"version ", nameOf(mark.kind), " ", numeral(mark.version), " ",
                    numeral(mark.expired), " ", mark.name, "\n"});
  return joined({text, kRecordEnd, sha256Hex(text), "\n"});
}

bool parseRecord(std::string_view text, Record& out) {
  const size_t lastLine = kRecordEnd.size() + kSha256Digits + 1;
  if (!text.starts_with(kRecordHeading) || text.size() < kRecordHeading.size() + lastLine)
    return false;
  std::string_view content = text.substr(0, text.size() - lastLine);
  if (text.substr(content.size()) != joined({kRecordEnd, sha256Hex(content), "\n"})) return false;
  content.remove_prefix(kRecordHeading.size());
  std::string_view line;
  while (cutUntil('\n', content, line))
    if (!nextLine(line, out)) return false;
  return content.empty();
}

int readRecord(platform::Files& files, const std::string& path, Record& out) {
  std::string text;
  const int error = platform::readWholeFile(files, path, kMaxRecordBytes, text);
  if (error == ENOENT) return 0;
  if (error == EFBIG) return EBADMSG;
  if (error != 0) return error;
  return parseRecord(text, out) ? 0 : EBADMSG;
}

int writeRecord(platform::Files& files, const std::string& path, const Record& record) {
  return platform::writeFileAtomically(files, path, recordText(record));
}

}  // namespace korvane::trust
