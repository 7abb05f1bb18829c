#include "comm/failure_cause.h"

#include <curl/curl.h>

#include <algorithm>
#include <cerrno>

#include "comm/failure_text.h"
#include "comm/tls_identity.h"
#include "platform/error_codes.h"

namespace korvane {
namespace {

using Stage = ConnectionStage;

constexpr uint32_t kLibcurlConnectMs = 300'000;  // when no connect time-out is set
constexpr char kCheckPlace[] =
    "Start the management server, or correct host and port in agent.http.url.";

uint64_t connectLimit(const TransportRequest& request) {
  const uint64_t limit = request.connectTimeoutSeconds
                             ? request.connectTimeoutSeconds * uint64_t{1000}
                             : kLibcurlConnectMs;
  return std::min<uint64_t>(limit, request.totalTimeoutMs);
}

// libcurl names where it tried to connect; that is another place when a proxy stands between.
bool triedAnotherPlace(const ExchangeEvidence& evidence) {
  const std::string& text = evidence.result.errorText;
  constexpr char kMark[] = "Failed to connect to ";
  if (!text.starts_with(kMark)) return false;
  return !text.starts_with(kMark + placeOf(evidence.request.url) + " ");
}

bool isRefused(int error) {
  return error == ECONNREFUSED || error == platform::kWsaConnectionRefused;
}

bool isReset(int error) {
  return error == ECONNRESET || error == platform::kWsaConnectionReset;
}

std::string refusal(int error) {
  if (isRefused(error)) return "nothing is listening there (connection refused)";
  if (isReset(error)) return "the connection was reset";
  switch (error) {
    case ENETUNREACH:
    case EHOSTUNREACH:
    case platform::kWsaNetworkUnreachable:
    case platform::kWsaHostUnreachable:
      return "the network is unreachable";
    case EACCES:
    case EPERM:
    case platform::kWsaAccessDenied:
      return "this machine does not allow it (access denied)";
    case EADDRNOTAVAIL:
    case platform::kWsaAddressNotAvailable:
      return "the address cannot be connected to (not available)";
    case ETIMEDOUT:
    case platform::kWsaTimedOut:
      return "no answer came";
    default:
      return "system error " + std::to_string(error);
  }
}

FailureCause lookUpCause(const ExchangeEvidence& evidence) {
  const std::string name = quoted(hostOf(evidence.request.url));
  if (evidence.code == CURLE_COULDNT_RESOLVE_PROXY) {
    return {Stage::nameLookUp,
            "the proxy's name has no address: " + shown(evidence.result.errorText),
            "Correct the proxy variables of the agent's environment."};
  }
  if (evidence.code == CURLE_OPERATION_TIMEDOUT) {
    return {Stage::nameLookUp,
            "the look-up of the name " + name + " got no answer within " +
                seconds(connectLimit(evidence.request)),
            "Check that this machine reaches its name servers."};
  }
  return {Stage::nameLookUp, "the name " + name + " has no address",
          "Correct the host in agent.http.url or server.list, or add the name to the name server."};
}

FailureCause connectCause(const ExchangeEvidence& evidence) {
  const std::string place = placeOf(evidence.request.url);
  const long proxyStatus = evidence.result.trail.proxyStatus;
  if (proxyStatus == 407) {
    return {Stage::tcpConnection, "the proxy requires authentication (status 407)",
            "Put user and password into the proxy variable, or name the server in no_proxy."};
  }
  if (proxyStatus > 0 || evidence.code == CURLE_PROXY || triedAnotherPlace(evidence)) {
    return {
        Stage::tcpConnection,
        "no connection to " + place + " over the proxy: " + shown(evidence.result.errorText),
        "Correct the proxy variables of the agent's environment, or name the server in no_proxy."};
  }
  if (evidence.code == CURLE_OPERATION_TIMEDOUT) {
    return {Stage::tcpConnection,
            "no answer from " + place + " within " + seconds(connectLimit(evidence.request)),
            "Check that the server runs and that no firewall drops connections to it."};
  }
  const int error = evidence.result.trail.systemError;
  return {Stage::tcpConnection, "no connection to " + place + ": " + refusal(error),
          isRefused(error) || isReset(error)
              ? kCheckPlace
              : "Check this machine's network, or correct the host in agent.http.url."};
}

FailureCause settingsCause(const ExchangeEvidence& evidence) {
  const TransportRequest& request = evidence.request;
  FailureCause cause = checkUrl(request.url, request.plainAllowed, evidence.urlSetting);
  if (!cause.failed()) cause = checkCaFile(evidence.files, request.url, request.caFile);
  if (cause.failed() && evidence.code > 0) return cause;
  cause = checkIdentity(evidence.files, request.url, request.identity);
  if (cause.failed()) return cause;
  const std::string& text = evidence.result.errorText;
  return {Stage::settings,
          text.empty() ? "libcurl's error " + std::to_string(evidence.code) : shown(text),
          "Check the agent's settings and its machine's free memory."};
}

FailureCause transferCause(const ExchangeEvidence& evidence) {
  switch (stageReached(evidence.code, evidence.request, evidence.result)) {
    case Stage::settings:
      return settingsCause(evidence);
    case Stage::nameLookUp:
      return lookUpCause(evidence);
    case Stage::tcpConnection:
      return connectCause(evidence);
    case Stage::tlsHandshake:
      return tlsCause(evidence);
    case Stage::certificate:
      return certificateCause(evidence);
    default:
      return httpCause(evidence);
  }
}

}  // namespace

std::string FailureCause::text() const {
  return std::string(stageName(stage)) + ": " + cause;
}

FailureCause findCause(const ExchangeEvidence& evidence) {
  if (evidence.stopped) {
    return {stageReached(evidence.code, evidence.request, evidence.result),
            "it was cancelled because the agent is stopping",
            "Test again when the agent is running."};
  }
  if (evidence.refused) return answerCause(evidence);
  if (evidence.code > 0 && evidence.result.trail.requestBytes == 0) {
    // libcurl guesses what a URL lacks, and then fails of its guess.
    if (FailureCause url =
            checkUrl(evidence.request.url, evidence.request.plainAllowed, evidence.urlSetting);
        url.failed())
      return url;
  }
  if (evidence.code != 0) return transferCause(evidence);
  return answerCause(evidence);
}

}  // namespace korvane
