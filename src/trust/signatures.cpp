// The older of the two interfaces to such messages: OpenSSL's TLS part needs it, so that it is
// linked anyway, and a detached signature looks the same to both.
#include "trust/signatures.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>

namespace korvane::trust {
namespace {

template <auto Free>
struct FreedBy {
  template <typename T>
  void operator()(T* object) const {
    Free(object);
  }
};
using Bio = std::unique_ptr<BIO, FreedBy<BIO_free>>;
using Chain = std::unique_ptr<BIO, FreedBy<BIO_free_all>>;
using Message = std::unique_ptr<PKCS7, FreedBy<PKCS7_free>>;
using Certificate = std::unique_ptr<X509, FreedBy<X509_free>>;

const unsigned char* bytesOf(std::string_view text) {
  return reinterpret_cast<const unsigned char*>(text.data());
}

Certificate certificateOf(std::string_view der) {
  const unsigned char* at = bytesOf(der);
  Certificate found(d2i_X509(nullptr, &at, static_cast<long>(der.size())));
  if (at != bytesOf(der) + der.size()) found.reset();
  return found;
}

std::string subjectOf(const X509* certificate) {
  const Bio out(BIO_new(BIO_s_mem()));
  X509_NAME_print_ex(out.get(), X509_get_subject_name(certificate), 0,
                     XN_FLAG_ONELINE & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB));
  char* text = nullptr;
  const long length = BIO_get_mem_data(out.get(), &text);
  return {text, static_cast<size_t>(length)};
}

// The content through the digests that count. A message names its own, and could name thousands.
Chain digested(std::string_view content) {
  Chain chain(BIO_new(BIO_s_null()));
  for (const EVP_MD* digest : {EVP_sha256(), EVP_sha384(), EVP_sha512()}) {
    BIO* each = BIO_new(BIO_f_md());
    if (!each || !chain || BIO_set_md(each, digest) != 1) {
      BIO_free(each);
      return nullptr;
    }
    chain.reset(BIO_push(each, chain.release()));
  }
  const auto size = static_cast<int>(content.size());
  if (size != 0 && BIO_write(chain.get(), content.data(), size) != size) return nullptr;
  return chain;
}

bool isOf(const PKCS7_SIGNER_INFO* info, const X509* certificate) {
  const PKCS7_ISSUER_AND_SERIAL* named = info->issuer_and_serial;
  return X509_NAME_cmp(named->issuer, X509_get_issuer_name(certificate)) == 0 &&
         ASN1_INTEGER_cmp(named->serial, X509_get0_serialNumber(certificate)) == 0;
}

}  // namespace

Certificates certificatesOf(std::string_view pem) {
  Certificates all;
  const Bio in(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
  while (all.size() < kMaxSigners) {
    const Certificate one(PEM_read_bio_X509(in.get(), nullptr, nullptr, nullptr));
    if (!one) break;
    unsigned char* der = nullptr;
    const int size = i2d_X509(one.get(), &der);
    if (size > 0) all.emplace_back(reinterpret_cast<char*>(der), static_cast<size_t>(size));
    OPENSSL_free(der);
  }
  ERR_clear_error();
  return all;
}

bool isCertificate(std::string_view der) {
  const bool is = certificateOf(der) != nullptr;
  ERR_clear_error();
  return is;
}

std::string subjectOf(std::string_view der) {
  const Certificate certificate = certificateOf(der);
  ERR_clear_error();
  return certificate ? subjectOf(certificate.get()) : std::string();
}

SignatureCheck checkSignature(std::string_view content, std::string_view signature,
                              const Certificates& trusted) {
  SignatureCheck check;
  const unsigned char* at = bytesOf(signature);
  const Message message(signature.size() > kMaxSignatureBytes
                            ? nullptr
                            : d2i_PKCS7(nullptr, &at, static_cast<long>(signature.size())));
  const bool whole = message && at == bytesOf(signature) + signature.size();
  STACK_OF(PKCS7_SIGNER_INFO)* infos =
      whole && message->d.ptr && PKCS7_type_is_signed(message.get())
          ? PKCS7_get_signer_info(message.get())
          : nullptr;
  const int count = infos ? sk_PKCS7_SIGNER_INFO_num(infos) : 0;
  const Chain chain = digested(content);
  check.readable = count > 0 && static_cast<size_t>(count) <= kMaxSigners && chain;
  std::vector<Certificate> counted;  // one a key
  for (int i = 0; check.readable && i < count; ++i) {
    PKCS7_SIGNER_INFO* info = sk_PKCS7_SIGNER_INFO_value(infos, i);
    for (const std::string& der : trusted) {
      Certificate signer = certificateOf(der);
      if (!signer || !isOf(info, signer.get())) continue;
      if (PKCS7_signatureVerify(chain.get(), message.get(), info, signer.get()) != 1) {
        check.bad.push_back(subjectOf(signer.get()));
        continue;
      }
      const bool again = std::any_of(counted.begin(), counted.end(), [&](const auto& other) {
        return EVP_PKEY_eq(X509_get0_pubkey(other.get()), X509_get0_pubkey(signer.get())) == 1;
      });
      if (again) continue;
      check.good.push_back(subjectOf(signer.get()));
      counted.push_back(std::move(signer));
    }
  }
  ERR_clear_error();
  return check;
}

}  // namespace korvane::trust
