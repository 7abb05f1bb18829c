#include "comm/server_connection.h"

#include <utility>

#include "comm/curl_transport.h"
#include "comm/handler_sources.h"
#include "comm/https_handler.h"
#include "comm/response_sink.h"
#include "comm/server_url.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr int64_t kMsPerSecond = 1000;
constexpr int kNothingSent = -1;
constexpr char kUnknownServer[] = "Unknown";

bool repeatsElsewhere(int type) {
  return type != HttpsHandler::TEST_CONNECTION && type != HttpsHandler::BULK_LOG;
}

}  // namespace

ServerConnection::ServerConnection(Parts parts)
    : _parts(std::move(parts)),
      _agent({_parts.settings, _parts.files, _parts.systemInfo, _parts.idsComponent}),
      _lookUps({_parts.sockets, _parts.threading, _parts.stop, _parts.startThread}),
      _record(_parts.clock),
      _lastFailbackCheck(nowSeconds()) {}

ServerConnection::~ServerConnection() = default;

int64_t ServerConnection::nowSeconds() const {
  return _parts.clock.monotonicMs() / kMsPerSecond;
}

STRING ServerConnection::serverInUse() const {
  return korvane::serverInUse(_parts.settings.server);
}

Destination ServerConnection::destination(const STRING& server) {
  {
    Synchronized hold(_commLock);
    openTransport();
  }
  const ServerSettings& settings = _parts.settings.server;
  return {server, withHost(settings.getURL(), server), settings.getSSLCertFile(),
          settings.getConnectionTimeout()};
}

ExchangeResult ServerConnection::send(Destination& to, int type, HttpsMessageGenerator& message) {
  ExchangeResult result;
  if (repeatsElsewhere(type)) checkFailback(to);
  Synchronized hold(_commLock);
  if (addGuid(type, message, result)) sendOver(to, type, message, result);
  if (result.code > 0 && repeatsElsewhere(type) && !_parts.stop.requested()) failOver(to.server);
  if (result.code == 0 && type != HttpsHandler::BULK_LOG) noteServerUsed(to.server, type);
  result.answer = message.takeResponse();
  return result;
}

ExchangeResult ServerConnection::probe(Destination& to) {
  eventlog::trace(kSendSource, "Testing Connection");
  HttpsMessageGenerator first(_agent.charset());
  ExchangeResult result = send(to, HttpsHandler::TEST_CONNECTION, first);
  if (result.code == 0 || result.code == kCurlAbortedByCallback || _lowestTls != kTls12)
    return result;
  eventlog::event(EventId::transferFailed, kHandlerSource,
                  {"SSL connection with TLS v1.2 failed. Retrying with TLS v1.x protocol",
                   stageName(result.failure.stage), result.failure.cause});
  _lowestTls = kTls1;
  HttpsMessageGenerator second(_agent.charset());
  return send(to, HttpsHandler::TEST_CONNECTION, second);
}

bool ServerConnection::addGuid(int type, HttpsMessageGenerator& message, ExchangeResult& result) {
  if (type == HttpsHandler::REGISTER || type == HttpsHandler::TEST_CONNECTION) return true;
  result.guidUsed = _parts.settings.server.getUniqueId();
  if (result.guidUsed.empty()) {
    result.code = kNothingSent;
    result.errorText = "Guid is blank.";
    return false;
  }
  message.setGUID(result.guidUsed);
  return true;
}

void ServerConnection::sendOver(const Destination& to, int type, HttpsMessageGenerator& message,
                                ExchangeResult& result) {
  if (!_transport || !_transport->isOpen()) {
    eventlog::event(EventId::noTransferHandle, kHandlerSource);
    result.code = kNothingSent;
    result.failure = {ConnectionStage::settings, "no handle is available for transfers"};
    return;
  }
  if (_parts.stop.requested()) {
    result.code = kCurlAbortedByCallback;
    result.failure = {ConnectionStage::settings,
                      "it was not started because the agent is stopping"};
    return;
  }
  eventlog::trace(kSendSource, "Certificate Path : %s", to.caFile);
  if (const MessageBody* finished = message.finishedBody())
    return transfer(to, type, message, finished->bytes(), result);
  MessageBody body;
  message.writeBody(body);
  transfer(to, type, message, body.bytes(), result);
}

void ServerConnection::transfer(const Destination& to, int type, HttpsMessageGenerator& message,
                                std::string_view body, ExchangeResult& result) {
  TransportRequest request;
  request.url = to.url.toUtf8() + HttpsHandler::URL[type];
  request.headers = message.wireHeaders();
  request.body = body;
  request.caFile = to.caFile.toUtf8();
  request.sslVersion = _lowestTls;
  request.connectTimeoutSeconds = to.connectTimeoutSeconds;
  request.verbose = _parts.settings.logs.logTraceMessages();

  message.resetResponse();
  ResponseSink sink(message);
  TransportResult transferred;
  const int code = _transport->perform(request, sink, transferred);
  result.errorText = transferred.errorText;
  result.httpStatus = transferred.httpStatus;
  result.code = judge(code, to, type, message, request, transferred, result);
}

// Whether it was a whole answer of the protocol; gives the exchange's code.
int ServerConnection::judge(int code, const Destination& to, int type,
                            HttpsMessageGenerator& message, const TransportRequest& request,
                            const TransportResult& transferred, ExchangeResult& result) {
  const bool refused = message.response().refused();
  const bool stopped = code > 0 && _parts.stop.requested();
  const bool noStatus = code == 0 && result.httpStatus == 0;
  bool malformed = refused || transferred.answerBroken;
  // The body of an HTTP error is not ours to read.
  if (code == 0 && !refused && result.httpStatus <= kOkStatus)
    malformed = !message.finishResponse(_parts.settings.server.isUnicode()) || noStatus;
  const std::string& fault = message.response().fault();
  if (code != 0 || malformed || result.httpStatus > kOkStatus) {
    result.failure = findCause({.code = code,
                                .request = request,
                                .result = transferred,
                                .files = _parts.files,
                                .wallMs = _parts.clock.wallMs(),
                                .urlSetting = _parts.settings.server.getURL().toUtf8(),
                                .fault = fault,
                                .refused = refused,
                                .brokenOff = message.response().brokenOff(),
                                .stopped = stopped});
  }
  if (stopped) return kCurlAbortedByCallback;
  if (!malformed || code < 0) return code;
  if (!fault.empty()) result.errorText = fault;
  if (noStatus) result.errorText = "the answer has no HTTP status";
  eventlog::event(EventId::responseUnusable, kHandlerSource,
                  {to.server, HttpsHandler::URL[type], result.errorText,
                   stageName(result.failure.stage), result.failure.cause});
  return kCurlReceiveError;
}

// Notes the server that answered as the last one used.
void ServerConnection::noteServerUsed(const STRING& server, int type) {
  ServerSettings& settings = _parts.settings.server;
  const STRING last = settings.getServerLast();
  if (last == server) return;
  if (!last.empty() && last != STRING(kUnknownServer)) {
    eventlog::event(type == HttpsHandler::TEST_CONNECTION ? EventId::serverChangedByTest
                                                          : EventId::serverChanged,
                    kHandlerSource, {last, server});
  }
  settings.setServerLast(server);
  settings.setURLHost(server);
}

void ServerConnection::openTransport() {
  if (!_transport) {
    _transport = std::make_unique<CurlTransport>(
        CurlTransport::Parts{_parts.clock, _parts.sockets, _parts.stop});
    _usesLibcurl = true;
  }
  // perform() tells of a handle that cannot be had.
  ignoreResult(_transport->open());
}

void ServerConnection::close() {
  Synchronized hold(_commLock);
  if (_transport) _transport->close();
  if (!_usesLibcurl) return;
  _transport.reset();
  _usesLibcurl = false;
}

void ServerConnection::setTransport(std::unique_ptr<Transport> transport) {
  Synchronized hold(_commLock);
  _transport = std::move(transport);
  if (_transport) _usesLibcurl = false;
}

std::unique_ptr<Transport> ServerConnection::takeTransport() {
  Synchronized hold(_commLock);
  return _usesLibcurl ? nullptr : std::move(_transport);
}

ConnectionTarget ServerConnection::target(const STRING& server) const {
  return agentTarget(_parts.settings.server, _lowestTls, server);
}

ConnectionReport ServerConnection::test(const ConnectionTarget& target) const {
  return testConnection(target, {_parts.clock, _parts.files, _parts.sockets, _parts.systemInfo,
                                 _parts.stop});
}

void ServerConnection::offerApplicationRequest(const STRING& identifier) {
  Synchronized hold(_requestLock);
  _applicationRequest = identifier;
}

bool ServerConnection::takeApplicationRequest(STRING& identifier) {
  Synchronized hold(_requestLock);
  identifier = std::exchange(_applicationRequest, STRING());
  return !identifier.empty();
}

void ServerConnection::saveSettings() {
  SettingsFile& file = _parts.settings.file;
  // What cannot be written now is written by one of the next loads.
  if (file.getWhoIsRunning() != SettingsFile::RUNNING_CONFIG_TOOL)
    ignoreResult(file.updateIniFile());
}

void ServerConnection::forgetIdentity(const STRING& guid) {
  _parts.settings.server.clearUniqueId(guid);
}

}  // namespace korvane
