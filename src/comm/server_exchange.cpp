// One message to a server and its answer, step by step.
#include "comm/handler_sources.h"
#include "comm/https_handler.h"
#include "comm/response_sink.h"
#include "comm/server_connection.h"
#include "config/log_settings.h"
#include "config/server_settings.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"

namespace korvane {
namespace {

constexpr int kNothingSent = -1;
constexpr char kUnknownServer[] = "Unknown";

bool repeatsElsewhere(int type) {
  return type != HttpsHandler::TEST_CONNECTION && type != HttpsHandler::BULK_LOG;
}

}  // namespace

ExchangeResult ServerConnection::send(Destination& to, int type, HttpsMessageGenerator& message) {
  ExchangeResult result;
  if (repeatsElsewhere(type)) checkFailback(to);
  Synchronized hold(_commLock);
  if (addGuid(type, message, result)) sendOver(to, type, message, result);
  if (result.code > 0 && repeatsElsewhere(type) && !_parts.stop.requested()) failOver(to.server);
  if (result.code == 0 && type != HttpsHandler::BULK_LOG) noteServerUsed(to.server, type);
  result.answer = message.releaseResponse();
  return result;
}

ExchangeResult ServerConnection::probe(Destination& to) {
  eventlog::trace(kSendSource, "Testing Connection");
  HttpsMessageGenerator first(_agent.charset());
  ExchangeResult result = send(to, HttpsHandler::TEST_CONNECTION, first);
  if (result.code == 0 || result.code == kCurlAbortedByCallback || _lowestTls != kTls12 ||
      !to.identity.minimumVersion.empty())
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
  request.identity = to.identity;
  request.plainAllowed = to.plainAllowed;
  request.sslVersion = lowestVersion(to.identity, _lowestTls);
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

}  // namespace korvane
