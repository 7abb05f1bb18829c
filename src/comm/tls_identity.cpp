#include "comm/tls_identity.h"

#include <curl/curl.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "comm/transfer_trail.h"
#include "config/identity_check.h"
#include "config/server_settings.h"

namespace korvane {
namespace {

constexpr unsigned kHostRules =
    X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS | X509_CHECK_FLAG_NEVER_CHECK_SUBJECT;
constexpr int kNamesKept = 16;

std::string textOf(const ASN1_STRING* text) {
  return {reinterpret_cast<const char*>(ASN1_STRING_get0_data(text)),
          static_cast<size_t>(ASN1_STRING_length(text))};
}

std::string addressOf(const ASN1_OCTET_STRING* octets) {
  const unsigned char* const byte = ASN1_STRING_get0_data(octets);
  const int length = ASN1_STRING_length(octets);
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (int i = 0; i < length; ++i) {
    if (length == 4) {
      text += (i ? "." : "") + std::to_string(byte[i]);
    } else {
      if (i && i % 2 == 0) text += ':';
      text += kDigits[byte[i] >> 4];
      text += kDigits[byte[i] & 15];
    }
  }
  return text;
}

std::vector<std::string> namesOf(const X509& certificate) {
  std::vector<std::string> names;
  const std::unique_ptr<GENERAL_NAMES, void (*)(GENERAL_NAMES*)> all(
      static_cast<GENERAL_NAMES*>(
          X509_get_ext_d2i(&certificate, NID_subject_alt_name, nullptr, nullptr)),
      &GENERAL_NAMES_free);
  for (int i = 0; i < sk_GENERAL_NAME_num(all.get()) && i < kNamesKept; ++i) {
    const GENERAL_NAME* const name = sk_GENERAL_NAME_value(all.get(), i);
    if (name->type == GEN_DNS) names.push_back(textOf(name->d.dNSName));
    if (name->type == GEN_IPADD) names.push_back(addressOf(name->d.iPAddress));
  }
  return names;
}

bool hasName(X509& certificate, const std::string& name) {
  const std::unique_ptr<ASN1_OCTET_STRING, void (*)(ASN1_OCTET_STRING*)> address(
      a2i_IPADDRESS(name.c_str()), &ASN1_OCTET_STRING_free);
  if (address) return X509_check_ip_asc(&certificate, name.c_str(), 0) == 1;
  return X509_check_host(&certificate, name.c_str(), name.size(), kHostRules, nullptr) == 1;
}

std::string pinOf(const X509& certificate) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  unsigned char* key = nullptr;
  const int length = i2d_X509_PUBKEY(X509_get_X509_PUBKEY(&certificate), &key);
  const bool digested = length > 0 && EVP_Digest(key, static_cast<size_t>(length), digest, &size,
                                                 EVP_sha256(), nullptr) == 1;
  OPENSSL_free(key);
  if (!digested) return {};
  unsigned char text[2 * EVP_MAX_MD_SIZE];
  const int written = EVP_EncodeBlock(text, digest, static_cast<int>(size));
  return "sha256//" +
         std::string(reinterpret_cast<const char*>(text), static_cast<size_t>(written));
}

}  // namespace

TlsIdentity tlsIdentityOf(const ServerSettings& settings) {
  return {.serverNames = settings.getServerNames().toUtf8(),
          .serverPins = settings.getServerPins().toUtf8(),
          .crlFile = settings.getRevocationFile().toUtf8(),
          .clientCertificate = settings.getClientCertificate().toUtf8(),
          .clientKey = settings.getClientKey().toUtf8(),
          .minimumVersion = settings.getMinimumTls().toUtf8()};
}

long lowestVersion(const TlsIdentity& identity, long lowest) {
  if (identity.minimumVersion.empty()) return lowest;
  return identity.minimumVersion == "1.2" ? CURL_SSLVERSION_TLSv1_2 : CURL_SSLVERSION_TLSv1_3;
}

bool provesIdentity(x509_st& certificate, const TlsIdentity& identity, TlsTrail& seen) {
  using enum TlsTrail::Identity;
  seen.names = namesOf(certificate);
  seen.pin = pinOf(certificate);
  seen.identity = asAsked;
  if (!identity.serverNames.empty()) {
    // A list that cannot be used lets no server pass.
    const bool usable = identityFault(Key::sslServerNames, identity.serverNames).empty();
    const std::vector<std::string> asked = listOf(identity.serverNames);
    if (!usable || std::none_of(asked.begin(), asked.end(), [&](const std::string& name) {
          return hasName(certificate, name);
        }))
      seen.identity = otherName;
  }
  if (seen.identity == asAsked && !identity.serverPins.empty()) {
    const std::vector<std::string> asked = listOf(identity.serverPins);
    if (seen.pin.empty() || std::find(asked.begin(), asked.end(), seen.pin) == asked.end())
      seen.identity = otherKey;
  }
  return seen.identity == asAsked;
}

}  // namespace korvane
