#include <cstdio>
#include <utility>

#include "comm/handler_sources.h"
#include "comm/https_handler.h"
#include "comm/server_connection.h"
#include "comm/update_kinds.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr char kAppDataSource[] = "HttpsHandler::sendApplicationData";

void append(PropertyList& to, const PropertyList& pairs) {
  to.insert(to.end(), pairs.begin(), pairs.end());
}

}  // namespace

int HttpsHandler::registerAgent(const char* data, long length) {
  eventlog::trace("HttpsHandler::registerAgent", "Sending Register Message");
  const AgentDescription& agent = _connection.agent();
  HttpsMessageGenerator message(agent.charset());
  agent.addTo(message);
  if (data && length > 0) message.addBinary(data, static_cast<size_t>(length));
  agent.addIdsPolicy(message);
  return exchange(REGISTER, message);
}

int HttpsHandler::testConnection(bool check) {
  forgetLast(TEST_CONNECTION);
  _last = _connection.probe(_to);
  return check ? checkRetStatus(_last.code) : _last.code;
}

int HttpsHandler::getUpdate(int kinds, bool withAttributes) {
  return getUpdate(kinds, {}, withAttributes);
}

int HttpsHandler::getUpdate(int kinds, const PropertyList& extra, bool withAttributes) {
  PropertyList pairs;
  for (const UpdateKind& kind : kUpdateKinds) {
    if (!(kinds & kind.bit) || !kind.sending) continue;
    eventlog::trace(kSendSource, kind.sending);
    pairs.emplace_back(kind.requestKey, "true");
  }
  if (withAttributes) append(pairs, _connection.agent().attributes());
  append(pairs, extra);
  HttpsMessageGenerator message(_connection.agent().charset());
  message.addProperties(pairs);
  _lastKinds = kinds & ~kContentKinds;
  return exchange(GET_UPDATE, message);
}

int HttpsHandler::getCompUpdate() {
  std::fputs("Requesting FL data  HttpsHandler::getCompUpdate() \n", stdout);
  eventlog::trace("HttpsHandler::getCompUpdate", "Sending VexQel and Ferrolyn GET_UPDATE Message");
  PropertyList pairs;
  for (const UpdateKind& kind : kUpdateKinds) {
    if (kind.bit & kContentKinds) pairs.emplace_back(kind.requestKey, "true");
  }
  HttpsMessageGenerator message(_connection.agent().charset());
  message.addProperties(pairs);
  _lastKinds = kContentKinds;
  int code = send(GET_UPDATE, message);
  std::printf(
      " Returning from HttpsHandler::getCompUpdate()--->send(GET_UPDATE,gen). "
      "Return code %d \n",
      code);
  code = checkRetStatus(code);
  std::printf(" Returning from HttpsHandler::checkRetStatus()--->Return code %d \n", code);
  return code;
}

int HttpsHandler::setUpdateResult(int kind, PropertyList pairs) {
  const STRING type = getUpdateAsString(kind);
  eventlog::trace(kSendSource, "Sending Update Result Message, Type = %s", type);
  PropertyList all{{"result.type", type}};
  append(all, pairs);
  HttpsMessageGenerator message(_connection.agent().charset());
  message.addProperties(all);
  _lastKinds = kind;
  return exchange(SET_UPDATE_RESULT, message);
}

int HttpsHandler::setUpdateResult(int kind, int code, STRING& text, Property pair) {
  return setUpdateResult(kind, code, std::as_const(text), PropertyList{std::move(pair)});
}

int HttpsHandler::setUpdateResult(int kind, int code, STRING& text, PropertyList pairs) {
  return setUpdateResult(kind, code, std::as_const(text), std::as_const(pairs));
}

int HttpsHandler::setUpdateResult(int kind, int code, const STRING& text,
                                  const PropertyList& pairs) {
  PropertyList all{{"result.errorcode", STRING::fromInt(code)}, {"result.errormessage", text}};
  append(all, pairs);
  for (const Property& pair : all) {
    eventlog::trace("HttpsHandler::setUpdateResult", "NameValuePair %s %s", pair.first,
                    pair.second);
  }
  return setUpdateResult(kind, all);
}

int HttpsHandler::log(PropertyList record) {
  eventlog::trace(kSendSource, "Sending Single Log Message");
  HttpsMessageGenerator message(_connection.agent().charset());
  message.addProperties(record);
  return exchange(LOG_MESSAGE, message);
}

int HttpsHandler::log(std::vector<PropertyList> records) {
  eventlog::trace(kSendSource, "Sending Multiple Log Messages");
  HttpsMessageGenerator message(_connection.agent().charset());
  for (const PropertyList& record : records) message.addProperties(record);
  return exchange(LOG_MESSAGE, message);
}

int HttpsHandler::log(const MessageBody& finishedBody, size_t) {
  eventlog::trace(kSendSource, "Sending Multiple Log Messages");
  HttpsMessageGenerator message(_connection.agent().charset());
  message.setBody(finishedBody);
  return exchange(LOG_MESSAGE, message);
}

int HttpsHandler::sendFile(const STRING& path) {
  HttpsMessageGenerator message(_connection.agent().charset());
  const std::unique_ptr<MessageBody> body = message.buildBulkLogMessage(_connection.files(), path);
  if (!body) {
    _last.failure = {};
    _last.errorText = "the file " + path.toUtf8() + " cannot be read";
    return checkRetStatus(-1);
  }
  message.setBody(*body);
  return exchange(BULK_LOG, message);
}

int HttpsHandler::sendApplicationData(const char* data, bool moreData, long length) {
  const STRING request = _connection.agent().applicationRequest();
  eventlog::trace(kAppDataSource, "Sending Application Data");
  eventlog::trace(kAppDataSource, "Sent Request ID: %s", request);
  eventlog::trace(kAppDataSource, moreData ? "More Data Available" : "No More Data Available");
  HttpsMessageGenerator message(_connection.agent().charset());
  message.addProperties({{"result.type", "app.data"},
                         {"application.requestID", request},
                         {"application.request.complete", STRING::fromBool(!moreData)}});
  if (data && length > 0) {
    message.addBinary(data, static_cast<size_t>(length));
  } else {
    eventlog::trace(kAppDataSource, "Sending no ADR data. Only properties.");
  }
  if (_connection.shuttingDown()) {
    eventlog::trace(kAppDataSource, "Agent Shutting Down. Stopping data transmission.");
    return -1;
  }
  const int result = send(APPLICATION_DATA, message);
  // The check runs twice on purpose: a failure stands in the log twice.
  eventlog::trace(kAppDataSource, "Sent Application Data with return code : %d",
                  checkRetStatus(result));
  return checkRetStatus(result);
}

int HttpsHandler::sendAgentStatusMessage(bool) {
  const AgentDescription& agent = _connection.agent();
  const AgentDescription::Outcome error = agent.policyError();
  eventlog::trace(kHandlerSource, "::sendAgentStatusMessage -- Status=%d %s", error.code,
                  error.text);
  PropertyList pairs = agent.policyAndMachine();
  const ServerConnection::StatusAddition addition = _connection.statusAddition();
  const uint64_t number = addition.add ? addition.add(pairs) : 0;
  const int result = setUpdateResult(POLICY_UPDATE, error.code, error.text, pairs);
  STRING refusal;
  if (addition.taken && result == 0 && getKorvaneError(refusal) == 0) addition.taken(number);
  return result;
}

int HttpsHandler::sendPolicyStateMessage() {
  const AgentDescription& agent = _connection.agent();
  const AgentDescription::Outcome state = agent.policyState();
  eventlog::trace(kHandlerSource, "::sendPolicyStateMessage -- Error:=%d %s", state.code,
                  state.text);
  return setUpdateResult(POLICY_UPDATE, state.code, state.text, agent.policy());
}

}  // namespace korvane
