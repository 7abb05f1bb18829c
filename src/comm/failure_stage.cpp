#include <curl/curl.h>

#include <memory>

#include "comm/failure_cause.h"
#include "comm/failure_text.h"
#include "comm/pem_file.h"
#include "config/url_text.h"

namespace korvane {
namespace {

using Stage = ConnectionStage;

constexpr int kTlsAlertCloseNotify = 0;

// Codes that say by themselves which stage it was.
std::optional<Stage> stageOfCode(int code) {
  switch (code) {
    case -1:
    case CURLE_FAILED_INIT:
    case CURLE_URL_MALFORMAT:
    case CURLE_NOT_BUILT_IN:
    case CURLE_BAD_FUNCTION_ARGUMENT:
    case CURLE_UNKNOWN_OPTION:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_CRL_BADFILE:
      return Stage::settings;
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_RESOLVE_HOST:
      return Stage::nameLookUp;
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
      return Stage::tcpConnection;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CIPHER:
      return Stage::tlsHandshake;
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_INVALIDCERTSTATUS:
      return Stage::certificate;
    default:
      return {};
  }
}

}  // namespace

const char* stageName(ConnectionStage stage) {
  static constexpr const char* kNames[kConnectionStages] = {
      "settings",    "name look-up", "TCP connection", "TLS handshake",
      "certificate", "HTTP answer",  "agent port",     "server's answer"};
  return kNames[static_cast<int>(stage)];
}

ConnectionStage stageReached(int code, const TransportRequest& request,
                             const TransportResult& result) {
  const TransferTrail& trail = result.trail;
  // libcurl takes the code from OpenSSL's last error, which may be about what led to another one.
  if (code == CURLE_SSL_CONNECT_ERROR && trail.tls.verifyError != 0) return Stage::certificate;
  if (code == CURLE_PEER_FAILED_VERIFICATION && trail.tls.verifyError == 0 &&
      trail.tls.alertReceived > kTlsAlertCloseNotify)
    return Stage::tlsHandshake;  // it was the server that refused a certificate
  if (const std::optional<Stage> stage = stageOfCode(code)) return *stage;
  if (trail.keptConnection) return Stage::httpAnswer;
  if (trail.lookedUpUs == 0) {
    return code == CURLE_UNSUPPORTED_PROTOCOL ? Stage::settings : Stage::nameLookUp;
  }
  if (trail.connectedUs == 0) return Stage::tcpConnection;
  if (!isHttps(request.url)) return Stage::httpAnswer;
  // The answer to CONNECT was no tunnel.
  if (trail.tlsUs == 0 && trail.proxyStatus > 0 && trail.proxyStatus != 200)
    return Stage::tcpConnection;
  // TLS 1.3 lets a client send before the server has looked at the client's side of the handshake.
  const bool refused = trail.tls.alertReceived > kTlsAlertCloseNotify && trail.headerBytes == 0;
  return trail.tlsUs == 0 || refused || wantsCertificate(code, trail) ? Stage::tlsHandshake
                                                                      : Stage::httpAnswer;
}

bool wantsCertificate(int code, const TransferTrail& trail) {
  const bool ended =
      code == CURLE_SEND_ERROR || code == CURLE_RECV_ERROR || code == CURLE_GOT_NOTHING;
  return ended && trail.tls.certificateAsked && trail.headerBytes == 0 &&
         trail.tls.version == "TLSv1.3";
}

FailureCause checkUrl(const std::string& url, bool plainAllowed, const std::string& setting) {
  const auto because = [](const std::string& cause, const char* nextStep) {
    return FailureCause{Stage::settings, cause, nextStep};
  };
  const char* const correct = "Correct agent.http.url.";
  if (url.empty()) return because("agent.http.url is empty", "Set agent.http.url.");
  const std::string shownUrl = quoted(withoutUser(setting.empty() ? url : setting));
  const std::unique_ptr<CURLU, void (*)(CURLU*)> parsed(curl_url(), &curl_url_cleanup);
  const CURLUcode code = curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0);
  const bool plain = isPlainHttp(url);
  if (!isHttps(url) && !plain) {
    return because("agent.http.url, " + shownUrl + ", does not begin with https:// or http://",
                   correct);
  }
  if (plain && !plainAllowed) {
    return because("agent.http.url, " + shownUrl +
                       ", asks for plain HTTP, not encrypted, which agent.http.plain.enabled does "
                       "not allow",
                   "Use https:// in agent.http.url; only where nobody else can reach the network, "
                   "set agent.http.plain.enabled to true.");
  }
  if (code == CURLUE_OK) return {};
  return because("agent.http.url, " + shownUrl + ", is not a URL: " + curl_url_strerror(code),
                 correct);
}

FailureCause checkCaFile(platform::Files& files, const std::string& url,
                         const std::string& caFile) {
  if (!isHttps(url)) return {};
  if (caFile.empty()) {
    return {Stage::settings, "ssl.trustStore names no CA file",
            "Set ssl.trustStore to the file with the server's CA certificate."};
  }
  const PemFile file = readPemFile(files, caFile, PemContent::certificates);
  if (file.fault.empty()) return {};
  return {Stage::settings, "the CA file " + caFile + " " + file.fault,
          "Put the server's CA certificate, in PEM, into the file that ssl.trustStore names."};
}

}  // namespace korvane
