#include "comm/failure_cause.h"

#include <curl/curl.h>

#include <algorithm>
#include <cerrno>

#include "comm/ca_file.h"
#include "comm/failure_text.h"
#include "platform/error_codes.h"

namespace korvane {
namespace {

using Stage = ConnectionStage;

constexpr int kTooLarge = 100;                   // CURLE_TOO_LARGE of newer libcurls
constexpr uint32_t kLibcurlConnectMs = 300'000;  // when no connect time-out is set
constexpr char kCheckPlace[] =
    "Start the management server, or correct host and port in agent.http.url.";
constexpr char kCheckServerLog[] = "Look into the management server's log.";
constexpr char kUseAgentPort[] =
    "Check that agent.http.url names the agent port of the server and not its console port.";

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

std::string refusal(int error) {
  if (isRefused(error)) return "nothing listens there (connection refused)";
  switch (error) {
    case ENETUNREACH:
    case EHOSTUNREACH:
    case platform::kWsaNetworkUnreachable:
    case platform::kWsaHostUnreachable:
      return "no network leads there (unreachable)";
    case EACCES:
    case EPERM:
    case platform::kWsaAccessDenied:
      return "this machine does not allow it (access denied)";
    case EADDRNOTAVAIL:
    case platform::kWsaAddressNotAvailable:
      return "the address cannot be connected to (not available)";
    case ECONNRESET:
    case platform::kWsaConnectionReset:
      return "the connection was reset";
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
            "the look-up of the name " + name + " gave nothing within " +
                seconds(connectLimit(evidence.request)),
            "Check that this machine reaches its name servers."};
  }
  return {
      Stage::nameLookUp, "the name " + name + " has no address",
      "Correct the host in agent.http.url or server.list, or enter the name in the name server."};
}

FailureCause connectCause(const ExchangeEvidence& evidence) {
  const std::string place = placeOf(evidence.request.url);
  const long proxyStatus = evidence.result.trail.proxyStatus;
  if (proxyStatus == 407) {
    return {Stage::tcpConnection, "the proxy demands authentication (status 407)",
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
          isRefused(error)
              ? kCheckPlace
              : "Check this machine's network, or correct the host in agent.http.url."};
}

FailureCause settingsCause(const ExchangeEvidence& evidence) {
  FailureCause cause = checkUrl(evidence.request.url);
  if (!cause.failed()) cause = checkCaFile(evidence.request.url, evidence.request.caFile);
  if (cause.failed() && evidence.code > 0) return cause;
  const std::string& text = evidence.result.errorText;
  return {Stage::settings,
          text.empty() ? "libcurl's error " + std::to_string(evidence.code) : shown(text),
          "Check the settings of the agent and what its machine has left of memory."};
}

const char* whereInAnswer(const TransferTrail& trail) {
  if (trail.headerBytes == 0) return "before the answer began";
  return trail.headersWhole ? "in the body of the answer" : "in the headers of the answer";
}

// A transfer that broke off after the connection stood.
FailureCause httpCause(const ExchangeEvidence& evidence) {
  const auto because = [](const std::string& cause, const char* nextStep) {
    return FailureCause{Stage::httpAnswer, cause, nextStep};
  };
  const TransferTrail& trail = evidence.result.trail;
  const std::string& text = evidence.result.errorText;
  const char* const where = whereInAnswer(trail);
  // What a TLS server does with a request in the open is its own affair.
  if (!isHttps(evidence.request.url) && trail.headerBytes == 0 &&
      evidence.code != CURLE_OPERATION_TIMEDOUT) {
    return because("the request in the open (http://) has no HTTP answer; the port may want TLS",
                   "Write https:// in agent.http.url.");
  }
  switch (evidence.code) {
    case CURLE_OPERATION_TIMEDOUT:
      return because(
          "no more came within " + seconds(evidence.request.totalTimeoutMs) + ", " + where,
          "Check that the management server is not overloaded or hanging.");
    case CURLE_UNSUPPORTED_PROTOCOL:
      return because("the answer is not HTTP", kUseAgentPort);
    case CURLE_WEIRD_SERVER_REPLY:
      return because("the answer's headers are not HTTP", kUseAgentPort);
    case CURLE_OUT_OF_MEMORY:
      if (!evidence.result.answerBroken) break;
      [[fallthrough]];
    case kTooLarge:
      return because("a header line of the answer is too long", kUseAgentPort);
    case CURLE_PARTIAL_FILE:
      return because("the answer's body ends before its announced length", kCheckServerLog);
    case CURLE_GOT_NOTHING:
      return because("the connection was closed before the answer began", kCheckServerLog);
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
      if (contains(text, "content-length")) break;
      return because("the connection was " + howItEnded(text) + " " + where, kCheckServerLog);
    default:
      break;
  }
  return because(shown(text), kCheckServerLog);
}

bool isWebPage(const TransferTrail& trail) {
  const size_t first = trail.bodyStart.find_first_not_of(" \t\r\n");
  return contains(trail.contentType, "html") ||
         (first != std::string::npos && trail.bodyStart[first] == '<');
}

bool isLogin(const std::string& page) {
  for (const char* sign : {"type=\"password\"", "type=password", "login", "log in", "sign in"}) {
    if (contains(page, sign)) return true;
  }
  return false;
}

std::string titleOf(const std::string& page) {
  const size_t begin = page.find("<title>");
  const size_t end = page.find("</title>");
  if (begin == std::string::npos || end == std::string::npos || end < begin + 7) return {};
  return " " + quoted(page.substr(begin + 7, end - begin - 7));
}

FailureCause webPageCause(const TransferTrail& trail, long status) {
  const std::string named = titleOf(trail.bodyStart) + " (status " + std::to_string(status) + ")";
  if (isLogin(trail.bodyStart)) {
    return {Stage::agentPort, "a login page" + named + " answers, as a console port has it",
            kUseAgentPort};
  }
  return {Stage::agentPort,
          "a web page" + named + " answers: a captive page, a gateway or another web server",
          "Open that address in a browser on this machine to see whose page it is."};
}

FailureCause redirectCause(const ExchangeEvidence& evidence, const std::string& status) {
  const std::string& to = evidence.result.trail.redirectUrl;
  if (to.empty() || hostOf(to) == hostOf(evidence.request.url)) {
    return {Stage::agentPort,
            "a redirection (" + status + ") to " +
                (to.empty() ? "nowhere" : quoted(withoutPassword(to))) +
                " answers, as a console port or web server has it",
            kUseAgentPort};
  }
  return {Stage::agentPort,
          "a redirection (" + status + ") to " + quoted(withoutPassword(to)) +
              " answers: a captive page or gateway stands between",
          "Open that address in a browser on this machine to see whose page it is."};
}

// A whole HTTP answer with a status that the protocol does not have.
FailureCause statusCause(const ExchangeEvidence& evidence) {
  const long number = evidence.result.httpStatus;
  const std::string status = "status " + std::to_string(number);
  const bool https = isHttps(evidence.request.url);
  if (number == 407) {
    return {Stage::httpAnswer, "a proxy demands authentication (status 407)",
            "Let the agent reach the server without that proxy."};
  }
  if (number >= 500) {
    return {Stage::httpAnswer, "the server or a gateway before it has an error (" + status + ")",
            kCheckServerLog};
  }
  if (number >= 300 && number < 400) return redirectCause(evidence, status);
  if (number == 400) {
    return {Stage::agentPort,
            "the request was refused (status 400), as a console port does it" +
                std::string(https ? "" : ", or a TLS port with http://"),
            kUseAgentPort};
  }
  if (number == 401 || number == 403) {
    return {Stage::agentPort, "access was denied (" + status + "); an agent port asks for no login",
            kUseAgentPort};
  }
  if (number == 404) {
    return {Stage::agentPort, "there is nothing at this path (status 404)",
            "Correct the path in agent.http.url; it ends in a slash."};
  }
  return {Stage::agentPort, "no agent port answers with " + status, kUseAgentPort};
}

FailureCause answerCause(const ExchangeEvidence& evidence) {
  const TransferTrail& trail = evidence.result.trail;
  if (evidence.result.httpStatus > 200) return statusCause(evidence);
  if (!isAgentAnswer(trail)) {
    if (isWebPage(trail)) return webPageCause(trail, evidence.result.httpStatus);
    return {Stage::agentPort,
            trail.bodyStart.empty()
                ? "an empty answer without any header of an agent port"
                : "an answer that no agent port gives: " + quoted(trail.bodyStart),
            kUseAgentPort};
  }
  if (!evidence.fault.empty()) {
    return {Stage::serverAnswer, "the answer does not keep to the protocol: " + evidence.fault,
            kCheckServerLog};
  }
  if (evidence.serverError == 0) return {};
  return serverErrorCause(evidence.serverError, evidence.serverText);
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

FailureCause serverErrorCause(int code, const std::string& text) {
  return {
      Stage::serverAnswer,
      "the management server answers with its error " + std::to_string(code) + ": " + shown(text),
      kCheckServerLog};
}

bool isAgentAnswer(const TransferTrail& trail) {
  if (trail.ownHeader || contains(trail.contentType, "application/x-korvane")) return true;
  const size_t first = trail.bodyStart.find_first_not_of('\n');
  if (first == std::string::npos) return false;
  const std::string_view body = std::string_view(trail.bodyStart).substr(first);
  return body.starts_with("EOF_FLAG") || body.starts_with("Data-");
}

FailureCause findCause(const ExchangeEvidence& evidence) {
  if (evidence.stopped) {
    return {stageReached(evidence.code, evidence.request, evidence.result),
            "it was ended because the agent stops", "Test again when the agent runs."};
  }
  if (evidence.refused) {
    return {Stage::httpAnswer, "the answer is beyond what an agent takes: " + evidence.fault,
            kUseAgentPort};
  }
  // A page of something else may well end with its connection.
  const TransferTrail& trail = evidence.result.trail;
  if (evidence.code == 0 && evidence.brokenOff && (!trail.headersWhole || isAgentAnswer(trail))) {
    return {Stage::httpAnswer, std::string("the connection was closed ") + whereInAnswer(trail),
            kCheckServerLog};
  }
  if (evidence.code > 0 && trail.requestBytes == 0) {
    // libcurl guesses what a URL lacks, and then fails of its guess.
    if (FailureCause url = checkUrl(evidence.request.url); url.failed()) return url;
  }
  if (evidence.code != 0) return transferCause(evidence);
  return answerCause(evidence);
}

}  // namespace korvane
