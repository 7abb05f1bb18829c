#include "comm/https_handler.h"

#include "comm/handler_sources.h"
#include "comm/server_codes.h"
#include "comm/server_connection.h"
#include "eventlog/event_log.h"

namespace korvane {

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

HttpsHandler::HttpsHandler(ServerConnection& connection, const STRING& server)
    : _connection(connection),
      _to(connection.destination(server.empty() ? connection.serverInUse() : server)),
      _last{.failure = {},
            .errorText = {},
            .guidUsed = {},
            .answer = std::make_unique<ResponseParser>()} {
  _connection.announce(_to.server);
}

HttpsHandler::~HttpsHandler() = default;

const STRING& HttpsHandler::server() const {
  return _to.server;
}

const STRING& HttpsHandler::getGUIDUsed() const {
  return _last.guidUsed;
}

const ExchangeResult& HttpsHandler::lastResult() const {
  return _last;
}

void HttpsHandler::init() {
  _to = _connection.destination(_to.server);
  _last.guidUsed.clear();
}

// The last exchange counts no more, whatever comes of the next.
void HttpsHandler::forgetLast(int type) {
  _lastType = type;
  _last.code = -1;
  _last.answer->reset();
  _handedOut.clear();
}

int HttpsHandler::send(int type, HttpsMessageGenerator& generator) {
  forgetLast(type);
  _last = _connection.send(_to, type, generator);
  return _last.code;
}

void HttpsHandler::forgetIdentity() {
  _connection.forgetIdentity(_last.guidUsed);
}

// The event's text stays as it is; stage and cause follow it.
void HttpsHandler::noteFailure(EventId event, const STRING& text, int code) {
  FailureCause& failure = _last.failure;
  if (!failure.failed()) failure = {ConnectionStage::settings, text.toUtf8()};
  eventlog::event(event, kHandlerSource, {text, stageName(failure.stage), failure.cause});
  _connection.record().noteFailed(
      {.code = code, .text = failure.text(), .server = _to.server.toUtf8()},
      /*answered=*/false);
}

void HttpsHandler::noteSuccess() {
  const ResponseParser& answer = *_last.answer;
  const int error = answer.errorCode();
  if (error == 0 || error == kServerComeBackLater) noteApplicationRequest();
  if (error == 0) return _connection.record().noteAnswered(_to.server.toUtf8());
  const STRING text = answer.errorText().value_or(STRING(ResponseParser::kNoErrorText));
  _connection.record().noteFailed({.code = error,
                                   .text = serverErrorCause(error, text.toUtf8()).text(),
                                   .server = _to.server.toUtf8()},
                                  /*answered=*/true);
}

int HttpsHandler::checkRetStatus(int result) {
  ExchangeRecord& record = _connection.record();
  if (result == -1) {
    noteFailure(EventId::nothingSent, STRING(_last.errorText), -1);
    return -1;
  }
  if (result != 0) {
    _last.code = result;
    noteFailure(EventId::transferFailed, getCurlError(result), result);
    record.setTransferError(result);
    return result;
  }
  const int status = static_cast<int>(_last.httpStatus);
  if (status > kOkStatus) {
    _last.code = -status;
    noteFailure(EventId::httpError, getHTTPError(status), status);
    return status;
  }
  _last.code = 0;
  if (record.transferError() != 0) _connection.saveSettings();
  eventlog::event(EventId::serverWorking, kHandlerSource, {_connection.serverAddress()});
  record.setTransferError(0);
  noteSuccess();
  return 0;
}

int HttpsHandler::exchange(int type, HttpsMessageGenerator& generator) {
  return checkRetStatus(send(type, generator));
}

}  // namespace korvane
