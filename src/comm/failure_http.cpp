#include <curl/curl.h>

#include <algorithm>

#include "comm/failure_cause.h"
#include "comm/failure_text.h"
#include "config/url_text.h"

namespace korvane {
namespace {

using Stage = ConnectionStage;

constexpr int kTooLarge = 100;           // CURLE_TOO_LARGE of newer libcurls
constexpr int64_t kPauseUs = 5'000'000;  // what an answer that still comes may pause
constexpr char kCheckServerLog[] = "Check the management server's log.";
constexpr char kUseAgentPort[] =
    "Check that agent.http.url names the agent port of the server and not its console port.";

// A transfer whose time is over while its answer still comes.
bool stillCame(const ExchangeEvidence& evidence) {
  const TransferTrail& trail = evidence.result.trail;
  return trail.bodyBytes > 0 && trail.silentUs < std::min(kPauseUs, trail.totalUs / 4);
}

bool beginsLikeProtocol(const TransferTrail& trail) {
  const size_t first = trail.bodyStart.find_first_not_of('\n');
  if (first == std::string::npos) return false;
  const std::string_view body = std::string_view(trail.bodyStart).substr(first);
  return body.starts_with("EOF_FLAG") || body.starts_with("Data-");
}

// The agent asks for no encoding.
bool isEncoded(const TransferTrail& trail) {
  return !trail.contentEncoding.empty() && !contains(trail.contentEncoding, "identity") &&
         !trail.bodyStart.empty() && !beginsLikeProtocol(trail);
}

const char* whereInAnswer(const TransferTrail& trail) {
  if (trail.headerBytes == 0) return "before the answer began";
  return trail.headersWhole ? "in the body of the answer" : "in the headers of the answer";
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
    return {Stage::agentPort, "a login page" + named + " answers, as on a console port",
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
                (to.empty() ? "nowhere" : quoted(withoutUser(to))) +
                " answers, as on a console port or web server",
            kUseAgentPort};
  }
  return {Stage::agentPort,
          "a redirection (" + status + ") to " + quoted(withoutUser(to)) +
              " answers: a captive page or gateway is in between",
          "Open that address in a browser on this machine to see whose page it is."};
}

// A whole HTTP answer with a status that the protocol does not have.
FailureCause statusCause(const ExchangeEvidence& evidence) {
  const long number = evidence.result.httpStatus;
  const std::string status = "status " + std::to_string(number);
  const bool https = isHttps(evidence.request.url);
  if (number == 407) {
    return {Stage::httpAnswer, "a proxy requires authentication (status 407)",
            "Let the agent reach the server without that proxy."};
  }
  if (number >= 500 && number < 600) {
    return {Stage::httpAnswer,
            "the server or a gateway in front of it reports an error (" + status + ")",
            kCheckServerLog};
  }
  if (number >= 300 && number < 400) return redirectCause(evidence, status);
  if (number == 400) {
    return {Stage::agentPort,
            "the request was refused (status 400), as a console port does" +
                std::string(https ? "" : ", or a TLS port with http://"),
            kUseAgentPort};
  }
  if (number == 401 || number == 403) {
    return {Stage::agentPort, "access was denied (" + status + "); an agent port requires no login",
            kUseAgentPort};
  }
  if (number == 404) {
    return {Stage::agentPort, "nothing exists at this path (status 404)",
            "Correct the path in agent.http.url; it ends in a slash."};
  }
  return {Stage::agentPort, "no agent port answers with " + status, kUseAgentPort};
}

}  // namespace

FailureCause serverErrorCause(int code, const std::string& text) {
  return {Stage::serverAnswer,
          "the management server reports error " + std::to_string(code) + ": " + shown(text),
          kCheckServerLog};
}

bool isAgentAnswer(const TransferTrail& trail) {
  if (trail.ownHeader || contains(trail.contentType, "application/x-korvane")) return true;
  return beginsLikeProtocol(trail);
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
    return because("the plain http:// request got no HTTP answer; the port may require TLS",
                   "Use https:// in agent.http.url.");
  }
  switch (evidence.code) {
    case CURLE_OPERATION_TIMEDOUT:
      if (stillCame(evidence)) {
        return because("the answer was not complete within " +
                           seconds(evidence.request.totalTimeoutMs) + "; it was still arriving, " +
                           std::to_string(trail.bodyBytes) + " bytes of its body so far",
                       "Check what slows down the path to the management server.");
      }
      return because(
          "nothing more arrived within " + seconds(evidence.request.totalTimeoutMs) + ", " + where,
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
      return because("the answer's body is shorter than announced", kCheckServerLog);
    case CURLE_GOT_NOTHING:
      return because("the connection was closed before the answer began", kCheckServerLog);
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
      if (howItEnded(text).empty()) break;
      return because("the connection was " + howItEnded(text) + " " + where, kCheckServerLog);
    default:
      break;
  }
  return because("the answer cannot be read: " + shown(text), kCheckServerLog);
}

FailureCause answerCause(const ExchangeEvidence& evidence) {
  const TransferTrail& trail = evidence.result.trail;
  if (evidence.result.httpStatus == 0 && evidence.code == 0)
    return {Stage::httpAnswer, "the answer has no HTTP status", kUseAgentPort};
  if (evidence.refused) {
    return {Stage::httpAnswer, "the answer exceeds what an agent accepts: " + evidence.fault,
            kUseAgentPort};
  }
  if (isEncoded(trail) && evidence.result.httpStatus <= 200) {
    return {Stage::httpAnswer,
            "the answer's body is encoded (Content-Encoding " + quoted(trail.contentEncoding) +
                "), which agents neither request nor accept",
            "Have the server, or the gateway in front of it, send its answers unencoded."};
  }
  // A page of something else may well end with its connection.
  if (evidence.brokenOff && (!trail.headersWhole || isAgentAnswer(trail))) {
    return {Stage::httpAnswer, std::string("the connection was closed ") + whereInAnswer(trail),
            kCheckServerLog};
  }
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

}  // namespace korvane
