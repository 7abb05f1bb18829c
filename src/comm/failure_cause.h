// Why an exchange failed: the stage, the cause in words and one next step. The single source of
// these texts, for the agent's events and the connection test.
//
// Pure except for reading the CA file when a certificate does not chain to it. Any thread. Texts
// are UTF-8 of one line (failure_text.h).
//
//   const FailureCause cause = findCause({.code = code, .request = request, .result = result,
//                                         .files = files, .wallMs = clock.wallMs()});
//   if (cause.failed()) report(stageName(cause.stage), cause.cause, cause.nextStep);
#pragma once

#include <optional>
#include <string>

#include "comm/connection_test.h"
#include "comm/transport.h"
#include "platform/fwd.h"

namespace korvane {

// One exchange that is over.
struct ExchangeEvidence {
  int code = 0;  // of Transport::perform()
  const TransportRequest& request;
  const TransportResult& result;
  platform::Files& files;    // the CA file's
  int64_t wallMs = 0;        // when it ended
  std::string urlSetting{};  // agent.http.url as it stands; empty: the request's URL stands for it
  std::string fault{};       // why the answer's parser refused it; empty when it did not
  bool refused = false;      // that was for its size, while it arrived
  bool brokenOff = false;    // or because the connection ended too early
  int serverError = 0;       // the answer's error code
  std::string serverText{};  // and text
  bool stopped = false;      // the agent was asked to stop meanwhile
};

struct FailureCause {
  ConnectionStage stage = ConnectionStage::settings;
  std::string cause;  // empty: nothing failed
  std::string nextStep{};

  bool failed() const { return !cause.empty(); }
  // "TCP connection: nothing listens at ..."
  std::string text() const;
};

FailureCause findCause(const ExchangeEvidence& evidence);

// How far a transfer that failed came: the stage that it was in.
ConnectionStage stageReached(int code, const TransportRequest& request,
                             const TransportResult& result);

// Whether a transfer ended as servers end it that demand a client certificate over TLS 1.3:
// the client's side of the handshake is done before the server has looked at it, and the
// alert may be lost with the connection.
bool wantsCertificate(int code, const TransferTrail& trail);

// The two of the settings (checkIdentity() in tls_identity.h is the third): nothing is wrong with
// the URL, and with the CA file, when there is no cause. `setting` is what the cause shows of it
// when that is not the URL itself.
FailureCause checkUrl(const std::string& url, bool plainAllowed, const std::string& setting = {});
FailureCause checkCaFile(platform::Files& files, const std::string& url, const std::string& caFile);

// Whether an answer shows that an agent port gave it.
bool isAgentAnswer(const TransferTrail& trail);

// The management server's own objection.
FailureCause serverErrorCause(int code, const std::string& text);

// The causes within TLS, of the certificate, of a transfer that broke off behind them, and of an
// answer that is whole or refused; for findCause().
FailureCause tlsCause(const ExchangeEvidence& evidence);
FailureCause certificateCause(const ExchangeEvidence& evidence);
FailureCause identityCause(const ExchangeEvidence& evidence);
FailureCause httpCause(const ExchangeEvidence& evidence);
FailureCause answerCause(const ExchangeEvidence& evidence);

}  // namespace korvane
