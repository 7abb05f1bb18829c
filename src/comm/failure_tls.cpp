#include <curl/curl.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

#include <algorithm>

#include "comm/failure_cause.h"
#include "comm/failure_text.h"
#include "comm/pem_file.h"
#include "comm/tls_observer.h"
#include "util/dates.h"

namespace korvane {
namespace {

using Stage = ConnectionStage;

constexpr size_t kNamedAuthorities = 3;
constexpr char kCheckTlsPort[] =
    "Check that agent.http.url names the server's HTTPS port and that nothing in between "
    "terminates TLS.";
constexpr char kGetCa[] =
    "Put the certificate of the CA that issued the server's certificate into the file that "
    "ssl.trustStore names.";
constexpr char kSetClock[] =
    "Correct this machine's clock, or give the server a valid certificate.";

FailureCause handshake(const std::string& cause, const char* nextStep = kCheckTlsPort) {
  return {Stage::tlsHandshake, cause, nextStep};
}

// The content types of TLS records, RFC 8446, section 5.1.
bool beginsLikeTls(const std::string& bytes) {
  return bytes.empty() || (bytes[0] >= 20 && bytes[0] <= 23);
}

const char* versionName(long sslVersion) {
  switch (sslVersion) {
    case CURL_SSLVERSION_TLSv1_2:
      return "1.2";
    case CURL_SSLVERSION_TLSv1_3:
      return "1.3";
    default:
      return "1.0";
  }
}

// What a server wants that has asked for the agent's certificate and ended the handshake then.
FailureCause certificateDemanded(const ExchangeEvidence& evidence, const std::string& how) {
  if (evidence.request.identity.clientCertificate.empty()) {
    return handshake(
        "the server requires a client certificate, and ssl.client.certificate names none",
        "Set ssl.client.certificate and ssl.client.key, or configure the server's agent port to "
        "accept clients without a certificate.");
  }
  return handshake("the server does not accept the agent's certificate" + how,
                   "Check that the certificate in ssl.client.certificate is valid and of an "
                   "authority that the server trusts.");
}

FailureCause alertCause(const ExchangeEvidence& evidence, int alert) {
  const TlsTrail& tls = evidence.result.trail.tls;
  if (alert == SSL3_AD_HANDSHAKE_FAILURE && !tls.certificateAsked) {
    return handshake("the server accepts none of the agent's TLS ciphers",
                     "Configure the server to use current TLS ciphers.");
  }
  const std::string named = std::string("TLS alert \"") + SSL_alert_desc_string_long(alert) + "\"";
  if (tls.certificateAsked) return certificateDemanded(evidence, " (" + named + ")");
  return handshake("the server refused the handshake with the " + named);
}

FailureCause brokenHandshake(const ExchangeEvidence& evidence) {
  const TlsTrail& tls = evidence.result.trail.tls;
  const std::string& text = evidence.result.errorText;
  const char* const when = tls.firstBytes.empty() ? " before the server sent anything"
                                                  : " in the middle of the handshake";
  if (evidence.code == CURLE_OPERATION_TIMEDOUT) {
    const uint64_t limit = std::min<uint64_t>(
        evidence.request.connectTimeoutSeconds * uint64_t{1000}, evidence.request.totalTimeoutMs);
    return handshake(std::string(tls.firstBytes.empty()
                                     ? "the server accepts connections but sends nothing"
                                     : "the server does not finish the handshake") +
                     " within " + seconds(limit));
  }
  const std::string ended = howItEnded(text);
  return handshake(ended.empty() ? shown(text) : "the connection was " + ended + when);
}

// The authorities that the agent trusts, for a text.
std::string trusted(const ExchangeEvidence& evidence) {
  const PemFile file =
      readPemFile(evidence.files, evidence.request.caFile, PemContent::certificates);
  std::string names;
  for (size_t i = 0; i < file.certificates.size() && i < kNamedAuthorities; ++i) {
    names += (i ? ", " : "") + quoted(file.certificates[i].subject);
  }
  const size_t more =
      file.certificates.size() - std::min(file.certificates.size(), kNamedAuthorities);
  return more ? names + " and " + std::to_string(more) + " more" : names;
}

FailureCause revocationUnknown(const std::string& cause) {
  return {Stage::certificate, cause,
          "Put a current revocation list of every authority between the server and the trust "
          "store, in PEM, into the file that ssl.crl.file names."};
}

// A time as the dates of certificates are written.
std::string dateOf(int64_t wallMs) {
  const std::string text = formatTimestamp(wallMs);
  return text.substr(0, 10) + "T" + text.substr(11, 8) + "Z";
}

FailureCause untrusted(const ExchangeEvidence& evidence, const SeenCertificate& last) {
  return {
      Stage::certificate,
      "the issuer " + quoted(last.issuer) + " of the certificate " + quoted(last.subject) +
          " is neither in the CA file, which holds " + trusted(evidence) +
          ", nor sent by the server",
      evidence.result.trail.tls.chain.size() > 1
          ? kGetCa
          : "Put the server's CA into the file that ssl.trustStore names, or, when it is there, "
            "let the server send its intermediate certificates."};
}

}  // namespace

FailureCause tlsCause(const ExchangeEvidence& evidence) {
  const TlsTrail& tls = evidence.result.trail.tls;
  const std::string place = placeOf(evidence.request.url);
  if (tls.firstBytes.starts_with("HTTP")) {
    return handshake(place + " speaks plain HTTP, not TLS",
                     "Put the server's HTTPS port into agent.http.url.");
  }
  if (!beginsLikeTls(tls.firstBytes) ||
      contains(evidence.result.errorText, "wrong version number")) {
    return handshake(
        place + " does not speak TLS" +
        (beginsLikeTls(tls.firstBytes) ? "" : "; it begins with " + bytesShown(tls.firstBytes)));
  }
  if (tls.alertReceived == TLS1_AD_PROTOCOL_VERSION || tls.alertSent == TLS1_AD_PROTOCOL_VERSION) {
    return handshake(std::string("the server has no TLS version in common with the agent, which "
                                 "takes TLS ") +
                         versionName(evidence.request.sslVersion) + " or later",
                     evidence.request.sslVersion == CURL_SSLVERSION_TLSv1_3
                         ? "Configure the server to use TLS 1.3, or correct ssl.minimum.version."
                         : "Configure the server to use TLS 1.2 or later.");
  }
  if (tls.alertReceived > 0) return alertCause(evidence, tls.alertReceived);
  if (wantsCertificate(evidence.code, evidence.result.trail))
    return certificateDemanded(evidence, ", or closed the connection for another reason");
  return brokenHandshake(evidence);
}

FailureCause certificateCause(const ExchangeEvidence& evidence) {
  const TlsTrail& tls = evidence.result.trail.tls;
  using enum TlsTrail::Identity;
  if (tls.identity == otherName || tls.identity == otherKey) return identityCause(evidence);
  const auto depth = static_cast<size_t>(tls.verifyDepth);
  if (tls.verifyError == 0 || depth >= tls.chain.size()) {
    return {Stage::certificate, shown(evidence.result.errorText), kGetCa};
  }
  const SeenCertificate& wrong = tls.chain[depth];
  const std::string named = "the certificate " + quoted(wrong.subject);
  switch (tls.verifyError) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return {Stage::certificate,
              named + " expired at " + wrong.notAfter + "; this machine's clock says " +
                  dateOf(evidence.wallMs),
              kSetClock};
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return {Stage::certificate,
              named + " is valid from " + wrong.notBefore + " on; this machine's clock says " +
                  dateOf(evidence.wallMs),
              kSetClock};
    case X509_V_ERR_CERT_REVOKED:
      return {Stage::certificate, named + " is revoked, says the file that ssl.crl.file names",
              "Give the server a new certificate issued by the agent's CA."};
    case X509_V_ERR_UNABLE_TO_GET_CRL:
      return revocationUnknown(named +
                               " cannot be checked: the file that ssl.crl.file names has "
                               "no revocation list of its issuer " +
                               quoted(wrong.issuer));
    case X509_V_ERR_CRL_HAS_EXPIRED:
      return revocationUnknown(named + " cannot be checked: the revocation list of its issuer " +
                               quoted(wrong.issuer) + " has expired");
    case X509_V_ERR_CRL_NOT_YET_VALID:
      return revocationUnknown(named + " cannot be checked: the revocation list of its issuer " +
                               quoted(wrong.issuer) + " is not yet valid");
    case X509_V_ERR_CRL_SIGNATURE_FAILURE:
      return revocationUnknown(named + " cannot be checked: the revocation list of its issuer " +
                               quoted(wrong.issuer) + " has a wrong signature");
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
      return {Stage::certificate, named + " is self-signed and not in the CA file",
              "Give the server a certificate issued by the agent's CA, or put its own into the "
              "file that "
              "ssl.trustStore names."};
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
      return {Stage::certificate,
              "the server's chain ends in the CA " + quoted(wrong.subject) +
                  ", which is not in the CA file; that holds " + trusted(evidence),
              kGetCa};
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
      return untrusted(evidence, wrong);
    default:
      return {Stage::certificate, named + ": " + verifyErrorText(tls.verifyError),
              "Give the server a valid certificate issued by the agent's CA."};
  }
}

}  // namespace korvane
