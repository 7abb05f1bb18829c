#include "comm/https_handler.h"

#include "agent/thread/stop_token.h"
#include "comm/exchange_outcome.h"
#include "comm/https_shared.h"
#include "comm/response_sink.h"
#include "comm/server_codes.h"
#include "comm/server_url.h"
#include "config/agent_config.h"
#include "eventlog/event_log.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kUnknownServer[] = "Unknown";

bool repeatsElsewhere(int type) {
  return type != HttpsHandler::TEST_CONNECTION && type != HttpsHandler::BULK_LOG;
}

// Notes the server that answered as the last one used.
void noteServerUsed(const STRING& server, int type) {
  AgentConfig& config = *AgentConfig::getInstance();
  const STRING last = config.getServerLast();
  if (last == server) return;
  if (!last.empty() && last != STRING(kUnknownServer)) {
    eventlog::event(type == HttpsHandler::TEST_CONNECTION ? EventId::serverChangedByTest
                                                          : EventId::serverChanged,
                    kHandlerSource, {last, server});
  }
  config.setServerLast(server);
  config.setURLHost(server);
}

}  // namespace

const int HttpsHandler::REGISTER;
const int HttpsHandler::GET_UPDATE;
const int HttpsHandler::SET_UPDATE_RESULT;
const int HttpsHandler::LOG_MESSAGE;
const int HttpsHandler::TEST_CONNECTION;
const int HttpsHandler::BULK_LOG;
const int HttpsHandler::APPLICATION_DATA;
const int HttpsHandler::CONFIG_UPDATE;
const int HttpsHandler::POLICY_UPDATE;
const int HttpsHandler::SOFTWARE_UPDATE;
const int HttpsHandler::POLICY_UPDATE_HIDS;
const int HttpsHandler::CONFIG_UPDATE_HIDS;
const int HttpsHandler::VEXQEL_UPDATE;
const int HttpsHandler::FERROLYN_REVO_UPDATE;
const int HttpsHandler::FERROLYN_SETTINGS_UPDATE;
const int HttpsHandler::FERROLYN_VT_UPDATE;

const char* const HttpsHandler::URL[] = {"register",       "update",   "result", "log",
                                         "testConnection", "bulk-log", "result"};
const char HttpsHandler::PROTOCOL_VERSION[] = "1.0";

HttpsHandler::HttpsHandler() : HttpsHandler(STRING()) {}

HttpsHandler::HttpsHandler(const STRING& server) : HttpsHandler(server, Unannounced()) {
  shared().announceServer(_server);
}

HttpsHandler::HttpsHandler(const STRING& server, Unannounced)
    : _server(server.empty() ? serverInUse() : server),
      _response(std::make_unique<ResponseParser>()) {
  init();
}

HttpsHandler::~HttpsHandler() = default;

const STRING& HttpsHandler::server() const {
  return _server;
}

const STRING& HttpsHandler::getGUIDUsed() const {
  return _guidUsed;
}

void HttpsHandler::init() {
  {
    Synchronized hold(shared()._commLock);
    shared().transport();
  }
  AgentConfig& config = *AgentConfig::getInstance();
  _url = withHost(config.getURL(), _server);
  _certificateFile = config.getSSLCertFile();
  _connectionTimeout = config.getConnectionTimeout();
  _guidUsed.clear();
}

int HttpsHandler::send(int type, HttpsMessageGenerator& generator) {
  _lastType = type;
  _response = std::make_unique<ResponseParser>();
  _handedOut.clear();
  _errorBuffer.clear();
  _httpStatus = 0;
  _failure = FailureCause();
  _guidUsed.clear();
  if (repeatsElsewhere(type)) checkFailback();
  Shared& state = shared();
  Synchronized hold(state._commLock);
  _lastResult = addGUID(type, generator) ? sendOver(state._cHandle.get(), type, generator) : -1;
  if (_lastResult > 0 && repeatsElsewhere(type) && !shutdownToken().requested()) {
    state.failOver(_server);
  }
  if (_lastResult == 0 && type != BULK_LOG) noteServerUsed(_server, type);
  _response = generator.takeResponse();
  return _lastResult;
}

void HttpsHandler::checkFailback() {
  Shared& state = shared();
  AgentConfig& config = *AgentConfig::getInstance();
  const int64_t now = failbackClock();
  const int64_t passed = now - state._lastFailbackCheck;
  const STRING primary = config.getServerPrimary();
  // A clock before the stored time gives a negative difference, which never counts as passed.
  if (passed < 0 || passed < static_cast<int64_t>(config.getFailbackInterval())) return;
  if (primary.empty() || _server == primary || shutdownToken().requested()) return;
  HttpsHandler handler(primary, Unannounced());
  if (handler.testConnection(false) == 0) {
    eventlog::trace(kSendSource, "Connection to primary server successful");
    returnTo(primary);
  } else {
    eventlog::trace(kSendSource, "Could not connect to the primary server");
  }
  state._lastFailbackCheck = now;
}

void HttpsHandler::returnTo(const STRING& primary) {
  AgentConfig& config = *AgentConfig::getInstance();
  _server = primary;
  _url = withHost(config.getURL(), primary);
  shared().setServerIP(primary, getServerIP(primary));
  config.setServerCurrent(primary);
  config.setServerNext(primary);
}

bool HttpsHandler::addGUID(int type, HttpsMessageGenerator& generator) {
  if (type == REGISTER || type == TEST_CONNECTION) return true;
  _guidUsed = AgentConfig::getInstance()->getUniqueId();
  if (_guidUsed.empty()) {
    _errorBuffer = "Guid is blank.";
    return false;
  }
  generator.setGUID(_guidUsed);
  return true;
}

int HttpsHandler::sendOver(Transport* transport, int type, HttpsMessageGenerator& generator) {
  if (!transport || !transport->isOpen()) {
    eventlog::event(EventId::noTransferHandle, kHandlerSource);
    _failure = {ConnectionStage::settings, "no handle is available for transfers"};
    return -1;
  }
  if (shutdownToken().requested()) {
    _failure = {ConnectionStage::settings, "it was not started because the agent is stopping"};
    return kCurlAbortedByCallback;
  }
  eventlog::trace(kSendSource, "Certificate Path : %s", _certificateFile);
  if (const MessageBody* finished = generator.finishedBody()) {
    return transfer(*transport, type, generator, finished->bytes());
  }
  MessageBody body;
  generator.writeBody(body);
  return transfer(*transport, type, generator, body.bytes());
}

int HttpsHandler::transfer(Transport& transport, int type, HttpsMessageGenerator& generator,
                           std::string_view body) {
  TransportRequest request;
  request.url = _url.toUtf8() + URL[type];
  request.headers = generator.wireHeaders();
  request.body = body;
  request.caFile = _certificateFile.toUtf8();
  request.sslVersion = shared().CURRENT_CURLOPT_SSLVERSION;
  request.connectTimeoutSeconds = _connectionTimeout;
  request.verbose = AgentConfig::getInstance()->logTraceMessages();

  generator.resetResponse();
  ResponseSink sink(generator);
  TransportResult result;
  const int code = transport.perform(request, sink, result);
  _errorBuffer = result.errorText;
  _httpStatus = result.httpStatus;
  return judgeAnswer(code, type, generator, request, result);
}

int HttpsHandler::judgeAnswer(int code, int type, HttpsMessageGenerator& generator,
                              const TransportRequest& request, const TransportResult& result) {
  const bool refused = generator.response().refused();
  const bool stopped = code > 0 && shutdownToken().requested();
  const bool noStatus = code == 0 && _httpStatus == 0;
  bool malformed = refused || result.answerBroken;
  // The body of an HTTP error is not ours to read.
  if (code == 0 && !refused && _httpStatus <= kOkStatus)
    malformed = !generator.finishResponse() || noStatus;
  const std::string& fault = generator.response().fault();
  if (code != 0 || malformed || _httpStatus > kOkStatus) {
    _failure = findCause({.code = code,
                          .request = request,
                          .result = result,
                          .urlSetting = AgentConfig::getInstance()->getURL().toUtf8(),
                          .fault = fault,
                          .refused = refused,
                          .brokenOff = generator.response().brokenOff(),
                          .stopped = stopped});
  }
  if (stopped) return kCurlAbortedByCallback;
  if (!malformed || code < 0) return code;
  if (!fault.empty()) _errorBuffer = fault;
  if (noStatus) _errorBuffer = "the answer has no HTTP status";
  eventlog::event(EventId::responseUnusable, kHandlerSource,
                  {_server, URL[type], _errorBuffer, stageName(_failure.stage), _failure.cause});
  return kCurlReceiveError;
}

// The event's text stays as it is; stage and cause follow it.
void HttpsHandler::noteFailure(EventId event, const STRING& text, int code) {
  if (!_failure.failed()) _failure = {ConnectionStage::settings, text.toUtf8()};
  eventlog::event(event, kHandlerSource, {text, stageName(_failure.stage), _failure.cause});
  noteExchangeFailed({.code = code, .text = _failure.text(), .server = _server.toUtf8()},
                     /*answered=*/false);
}

void HttpsHandler::noteSuccess() {
  const int error = _response->errorCode();
  if (error == 0 || error == kServerComeBackLater) noteApplicationRequest();
  if (error == 0) return noteExchangeAnswered(_server.toUtf8());
  const STRING text = _response->errorText().value_or(STRING(ResponseParser::kNoErrorText));
  noteExchangeFailed({.code = error,
                      .text = serverErrorCause(error, text.toUtf8()).text(),
                      .server = _server.toUtf8()},
                     /*answered=*/true);
}

int HttpsHandler::checkRetStatus(int result) {
  Shared& state = shared();
  if (result == -1) {
    noteFailure(EventId::nothingSent, STRING(_errorBuffer), -1);
    return -1;
  }
  if (result != 0) {
    _lastResult = result;
    noteFailure(EventId::transferFailed, getCurlError(result), result);
    state._lastError = result;
    return result;
  }
  const int status = static_cast<int>(_httpStatus);
  if (status > kOkStatus) {
    _lastResult = -status;
    noteFailure(EventId::httpError, getHTTPError(status), status);
    return status;
  }
  _lastResult = 0;
  AgentConfig& config = *AgentConfig::getInstance();
  if (state._lastError != 0 && config.getWhoIsRunning() != AgentConfig::RUNNING_CONFIG_TOOL) {
    // What cannot be written now is written by one of the next loads.
    ignoreResult(config.updateIniFile());
  }
  eventlog::event(EventId::serverWorking, kHandlerSource, {state.serverIP()});
  state._lastError = 0;
  noteSuccess();
  return 0;
}

int HttpsHandler::exchange(int type, HttpsMessageGenerator& generator) {
  return checkRetStatus(send(type, generator));
}

}  // namespace korvane
