#include "agentctl/signed_list.h"

#include <openssl/cms.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <memory>

namespace korvane::agentctl {
namespace {

template <auto Free>
struct FreedBy {
  template <typename T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Bio = std::unique_ptr<BIO, FreedBy<BIO_free>>;
using Message = std::unique_ptr<CMS_ContentInfo, FreedBy<CMS_ContentInfo_free>>;

struct FreeAll {
  void operator()(STACK_OF(X509) * certificates) const {
    sk_X509_pop_free(certificates, X509_free);
  }
};
using Certificates = std::unique_ptr<STACK_OF(X509), FreeAll>;

constexpr size_t kDigestLength = 64;  // SHA-256 in hexadecimal digits

Bio over(const std::string& bytes) {
  return Bio(BIO_new_mem_buf(bytes.data(), static_cast<int>(bytes.size())));
}

Certificates readCertificates(const std::string& pem) {
  Certificates all(sk_X509_new_null());
  const Bio in = over(pem);
  while (X509* one = PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr))
    if (sk_X509_push(all.get(), one) <= 0) X509_free(one);
  return all;
}

std::string subjectOf(const X509* certificate) {
  const Bio out(BIO_new(BIO_s_mem()));
  X509_NAME_print_ex(out.get(), X509_get_subject_name(certificate), 0,
                     XN_FLAG_ONELINE & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB));
  char* text = nullptr;
  const long length = BIO_get_mem_data(out.get(), &text);
  return {text, static_cast<size_t>(length)};
}

std::string lastError() {
  const char* reason = ERR_reason_error_string(ERR_peek_last_error());
  return reason ? reason : "no reason is known";
}

SignatureVerdict refused(std::string why) {
  ERR_clear_error();
  return {{}, std::move(why)};
}

}  // namespace

SignatureVerdict checkSignature(const std::string& list, const std::string& signature,
                                const std::string& signers) {
  const Certificates trusted = readCertificates(signers);
  if (sk_X509_num(trusted.get()) == 0)
    return refused("no trusted signer: the file has no certificate");
  ERR_clear_error();
  const Bio in = over(signature);
  const Message message(d2i_CMS_bio(in.get(), nullptr));
  if (!message) return refused("SHA256SUMS.p7s is no CMS message: " + lastError());
  const Bio content = over(list);
  constexpr unsigned kTheseCertificatesAlone = CMS_NOINTERN | CMS_NO_SIGNER_CERT_VERIFY;
  if (CMS_verify(message.get(), trusted.get(), nullptr, content.get(), nullptr,
                 CMS_DETACHED | CMS_BINARY | kTheseCertificatesAlone) != 1) {
    const bool unknown =
        ERR_GET_REASON(ERR_peek_last_error()) == CMS_R_SIGNER_CERTIFICATE_NOT_FOUND;
    return refused(unknown ? "the list was signed by none of the trusted signers"
                           : "SHA256SUMS.p7s is no signature of this list: " + lastError());
  }
  STACK_OF(X509)* found = CMS_get0_signers(message.get());
  const std::string signer = subjectOf(sk_X509_value(found, 0));
  sk_X509_free(found);
  return {signer, {}};
}

std::optional<std::string> digestOf(std::string_view list, std::string_view name) {
  std::optional<std::string> found;
  while (!list.empty()) {
    const size_t end = list.find('\n');
    const std::string_view line = list.substr(0, end);
    list.remove_prefix(end == std::string_view::npos ? list.size() : end + 1);
    constexpr std::string_view kBetween = "  ";
    if (line.size() <= kDigestLength || !line.substr(kDigestLength).starts_with(kBetween) ||
        line.substr(kDigestLength + kBetween.size()) != name)
      continue;
    if (found) return std::nullopt;
    found = line.substr(0, kDigestLength);
  }
  return found;
}

}  // namespace korvane::agentctl
