#include "comm/connection_test.h"

#include <algorithm>

#include "agent/thread/stop_token.h"
#include "comm/curl_transport.h"
#include "comm/exchange.h"
#include "comm/failure_cause.h"
#include "comm/failure_text.h"
#include "comm/https_handler.h"
#include "comm/https_message_generator.h"
#include "comm/pem_file.h"
#include "comm/response_sink.h"
#include "comm/server_url.h"
#include "comm/tls_observer.h"
#include "config/server_settings.h"
#include "config/url_text.h"
#include "platform/clock.h"
#include "platform/system_info.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

using Stage = ConnectionStage;

constexpr int64_t kUsPerMs = 1000;

// The environment variables that libcurl takes proxies from, in the order it looks.
constexpr const char* kHttpsProxies[] = {"https_proxy", "HTTPS_PROXY", "all_proxy",
                                         "ALL_PROXY",   "no_proxy",    "NO_PROXY"};
constexpr const char* kHttpProxies[] = {"http_proxy", "all_proxy", "ALL_PROXY", "no_proxy",
                                        "NO_PROXY"};

std::string proxies(platform::SystemInfo& systemInfo, bool https) {
  std::string all;
  const auto add = [&](const char* name) {
    const std::string value = systemInfo.environment(name);
    if (!value.empty())
      all += (all.empty() ? "" : ", ") + std::string(name) + "=" + withoutUser(value);
  };
  if (https) {
    for (const char* name : kHttpsProxies) add(name);
  } else {
    for (const char* name : kHttpProxies) add(name);
  }
  return all;
}

std::string otherServer(const TlsTrail& tls) {
  using enum TlsTrail::Identity;
  return tls.identity == otherName  ? "another name than ssl.server.names lists"
         : tls.identity == otherKey ? "another key than ssl.server.pins lists"
                                    : "";
}

// One test under way.
class Walk {
 public:
  Walk(const ConnectionTarget& target, const ConnectionTestParts& parts)
      : _target(target), _parts(parts) {
    _request.url = target.url + HttpsHandler::URL[HttpsHandler::TEST_CONNECTION];
    _request.caFile = target.caFile;
    _request.identity = target.identity;
    _request.plainAllowed = target.plainAllowed;
    _request.sslVersion = lowestVersion(target.identity, target.lowestTls);
    _request.connectTimeoutSeconds = target.connectTimeoutSeconds;
    _request.totalTimeoutMs = target.totalTimeoutMs;
  }

  ConnectionReport run() {
    const int64_t begin = _parts.clock.monotonicMs();
    _report.url = withoutUser(_target.url);
    _report.proxy = proxies(_parts.systemInfo, isHttps(_target.url));
    FailureCause cause = checkUrl(_target.url, _target.plainAllowed, _target.urlSetting);
    if (cause.failed() && _target.serverGiven)
      cause = {Stage::settings, "the given server does not form a valid URL",
               "Give a host, or host:port."};
    if (!cause.failed()) cause = checkCaFile(_parts.files, _target.url, _target.caFile);
    if (!cause.failed()) cause = checkIdentity(_parts.files, _target.url, _target.identity);
    if (!cause.failed()) cause = exchange();
    judge(cause);
    _report.milliseconds = _parts.clock.monotonicMs() - begin;
    return _report;
  }

 private:
  FailureCause exchange() {
    CurlTransport transport({_parts.clock, _parts.sockets, _parts.stop});
    if (!transport.open()) return {Stage::settings, "libcurl returned no handle", "Test again."};
    HttpsMessageGenerator message(_target.charset);
    MessageBody body;
    message.writeBody(body);
    _request.headers = message.wireHeaders();
    _request.body = body.bytes();
    ResponseSink sink(message);
    const int code = transport.perform(_request, sink, _result);
    return cause(code, message);
  }

  FailureCause cause(int code, HttpsMessageGenerator& message) {
    const bool refused = message.response().refused();
    // The answer is judged by what it held, finished or not.
    if (code == 0 && !refused && _result.httpStatus <= kOkStatus)
      ignoreResult(message.finishResponse(/*unicode=*/false));
    const ResponseParser& answer = message.response();
    return findCause(
        {.code = code,
         .request = _request,
         .result = _result,
         .files = _parts.files,
         .wallMs = _parts.clock.wallMs(),
         .urlSetting = _target.urlSetting,
         .fault = answer.fault(),
         .refused = refused,
         .brokenOff = answer.brokenOff(),
         .serverError = answer.errorCode(),
         .serverText = answer.errorText().value_or(ResponseParser::kNoErrorText).toUtf8(),
         .stopped = code != 0 && _parts.stop.requested()});
  }

  void judge(const FailureCause& cause) {
    const bool https = isHttps(_target.url);
    const int last = cause.failed() ? static_cast<int>(cause.stage) : kConnectionStages - 1;
    for (int i = 0; i <= last; ++i) {
      const auto stage = static_cast<Stage>(i);
      if (!https && (stage == Stage::tlsHandshake || stage == Stage::certificate)) continue;
      const bool failed = cause.failed() && i == last;
      _report.stages.push_back(
          {stageName(stage), !failed, took(stage, failed), failed ? cause.cause : found(stage)});
    }
    describeChain();
    _report.ok = !cause.failed();
    if (_report.ok) return;
    _report.failingStage = stageName(cause.stage);
    _report.cause = cause.cause;
    _report.nextStep = cause.nextStep;
  }

  void describeChain() {
    const TlsTrail& tls = _result.trail.tls;
    for (size_t i = 0; i < tls.chain.size(); ++i) {
      const SeenCertificate& seen = tls.chain[i];
      const bool wrong = tls.verifyError != 0 && i == static_cast<size_t>(tls.verifyDepth);
      _report.certificates.push_back({seen.subject, seen.issuer, seen.notBefore, seen.notAfter,
                                      wrong    ? verifyErrorText(tls.verifyError)
                                      : i == 0 ? otherServer(tls)
                                               : ""});
    }
  }

  // The certificate is looked at during the handshake, and the answer's judgement takes no time.
  int64_t took(Stage stage, bool failed) const {
    const TransferTrail& trail = _result.trail;
    const auto since = [&](int64_t begin, int64_t end) {
      return (failed || end == 0 ? trail.totalUs : end) / kUsPerMs - begin / kUsPerMs;
    };
    switch (stage) {
      case Stage::nameLookUp:
        return since(0, trail.lookedUpUs);
      case Stage::tcpConnection:
        return since(trail.lookedUpUs, trail.connectedUs);
      case Stage::tlsHandshake:
        return since(trail.connectedUs, trail.tlsUs);
      case Stage::httpAnswer:
        return since(std::max(trail.connectedUs, trail.tlsUs), trail.totalUs);
      default:
        return 0;
    }
  }

  // What a stage that went well found.
  std::string found(Stage stage) const {
    const TransferTrail& trail = _result.trail;
    switch (stage) {
      case Stage::settings:
        return isHttps(_target.url) ? "CA file " + _target.caFile + " with " + authorities()
                                    : "no TLS: everything is sent in clear text";
      case Stage::nameLookUp:
        return trail.address.empty() || trail.address == hostOf(_target.url)
                   ? hostOf(_target.url)
                   : hostOf(_target.url) + " is " + trail.address;
      case Stage::tcpConnection:
        return placeOf(_target.url);
      case Stage::tlsHandshake:
        return trail.tls.version.empty() ? "the server presents a certificate"
                                         : trail.tls.version + ", " + trail.tls.cipher;
      case Stage::certificate:
        return (trail.tls.chain.empty() ? "" : "of " + quoted(trail.tls.chain.front().subject)) +
               (trail.tls.identity == TlsTrail::Identity::asAsked ? ", as the settings ask" : "");
      case Stage::httpAnswer:
        return "status " + std::to_string(_result.httpStatus);
      case Stage::agentPort:
        return trail.ownHeader ? "it answers in the agent's protocol"
                               : "it answers in the agent's protocol, without a Korvane header";
      case Stage::serverAnswer:
        return "no error";
    }
    return {};
  }

  std::string authorities() const {
    const size_t count =
        readPemFile(_parts.files, _target.caFile, PemContent::certificates).certificates.size();
    return std::to_string(count) + (count == 1 ? " certificate" : " certificates");
  }

  const ConnectionTarget& _target;
  const ConnectionTestParts& _parts;
  TransportRequest _request;
  TransportResult _result;
  ConnectionReport _report;
};

// agent.http.url with another server in it.
STRING urlOf(const STRING& url, const STRING& server) {
  if (url.empty()) return {};
  const UrlText place = UrlText::parse(server);
  if (place.port.empty() || place.host.empty()) return withHost(url, server);
  UrlText parts = UrlText::parse(url);
  parts.host = place.host;
  parts.port = place.port;
  return parts.text();
}

}  // namespace

ConnectionTarget agentTarget(const ServerSettings& settings, long lowestTls, const STRING& server) {
  ConnectionTarget target;
  target.url = urlOf(settings.getURL(), server.empty() ? serverInUse(settings) : server).toUtf8();
  target.urlSetting = settings.getURL().toUtf8();
  target.plainAllowed = settings.isPlainHttpEnabled();
  target.serverGiven =
      !server.empty() && !checkUrl(settings.getURL().toUtf8(), target.plainAllowed).failed();
  target.caFile = settings.getSSLCertFile().toUtf8();
  target.connectTimeoutSeconds = settings.getConnectionTimeout();
  target.charset = settings.getCharset();
  target.identity = tlsIdentityOf(settings);
  target.lowestTls = lowestTls;
  return target;
}

ConnectionReport testConnection(const ConnectionTarget& target, const ConnectionTestParts& parts) {
  return Walk(target, parts).run();
}

}  // namespace korvane
