#include <cstdio>
#include <utility>

#include "comm/https_handler.h"
#include "comm/https_shared.h"
#include "comm/update_kinds.h"
#include "config/agent_config.h"
#include "config/prevention.h"
#include "eventlog/event_log.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "platform/system_info.h"

namespace korvane {
namespace {

constexpr int kBuiltInPolicy = AgentConfig::kBuiltInPolicyState;
constexpr uint64_t kMaxPolicyBytes = 256 * 1024 * 1024;
constexpr char kAppDataSource[] = "HttpsHandler::sendApplicationData";

// The settings of the IDS component, each log rule as one pair "idslogrules".
void addIdsSettings(HttpsMessageGenerator& message) {
  HidsInterface* ids = AgentConfig::getHIDSInterface();
  if (!ids || !ids->present()) return;
  PropertyList pairs = ids->settings();
  for (const Property& rule : ids->logRules()) {
    pairs.emplace_back("idslogrules", rule.first + "=" + rule.second);
  }
  message.addProperties(pairs);
}

void addIdsPolicy(HttpsMessageGenerator& message, const AgentConfig& config) {
  const std::string path = config.getIDSPlusFileName().toUtf8();
  std::string bytes;
  if (path.empty() ||
      platform::readWholeFile(platform::current().files, path, kMaxPolicyBytes, bytes) != 0) {
    return;
  }
  message.addBinary(bytes.data(), bytes.size());
}

void append(PropertyList& to, const PropertyList& pairs) {
  to.insert(to.end(), pairs.begin(), pairs.end());
}

}  // namespace

int HttpsHandler::registerAgent(const char* data, long length) {
  eventlog::trace("HttpsHandler::registerAgent", "Sending Register Message");
  const AgentConfig& config = *AgentConfig::getInstance();
  HttpsMessageGenerator message;
  message.addProperties(config.getAttributes());
  message.addProperties(config.getConfiguration());
  addIdsSettings(message);
  if (data && length > 0) message.addBinary(data, static_cast<size_t>(length));
  addIdsPolicy(message, config);
  return exchange(REGISTER, message);
}

int HttpsHandler::testConnection(bool check) {
  eventlog::trace(kSendSource, "Testing Connection");
  int result = 0;
  {
    HttpsMessageGenerator message;
    result = send(TEST_CONNECTION, message);
  }
  std::atomic<long>& lowest = shared().CURRENT_CURLOPT_SSLVERSION;
  if (result != 0 && result != kCurlAbortedByCallback && lowest == Shared::kTls12) {
    eventlog::event(EventId::transferFailed, kHandlerSource,
                    {"SSL connection with TLS v1.2 failed. Retrying with TLS v1.x protocol",
                     stageName(_failure.stage), _failure.cause});
    lowest = Shared::kTls1;
    HttpsMessageGenerator message;
    result = send(TEST_CONNECTION, message);
  }
  return check ? checkRetStatus(result) : result;
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
  if (withAttributes) append(pairs, AgentConfig::getInstance()->getAttributes());
  append(pairs, extra);
  HttpsMessageGenerator message;
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
  HttpsMessageGenerator message;
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
  HttpsMessageGenerator message;
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
  HttpsMessageGenerator message;
  message.addProperties(record);
  return exchange(LOG_MESSAGE, message);
}

int HttpsHandler::log(std::vector<PropertyList> records) {
  eventlog::trace(kSendSource, "Sending Multiple Log Messages");
  HttpsMessageGenerator message;
  for (const PropertyList& record : records) message.addProperties(record);
  return exchange(LOG_MESSAGE, message);
}

int HttpsHandler::log(const MessageBody& finishedBody, size_t) {
  eventlog::trace(kSendSource, "Sending Multiple Log Messages");
  HttpsMessageGenerator message;
  message.setBody(finishedBody);
  return exchange(LOG_MESSAGE, message);
}

int HttpsHandler::sendFile(const STRING& path) {
  HttpsMessageGenerator message;
  const std::unique_ptr<MessageBody> body = message.buildBulkLogMessage(path);
  if (!body) {
    _errorBuffer = "the file " + path.toUtf8() + " cannot be read";
    return checkRetStatus(-1);
  }
  message.setBody(*body);
  return exchange(BULK_LOG, message);
}

int HttpsHandler::sendApplicationData(const char* data, bool moreData, long length) {
  const STRING request = AgentConfig::getInstance()->getAppDataRequestID();
  eventlog::trace(kAppDataSource, "Sending Application Data");
  eventlog::trace(kAppDataSource, "Sent Request ID: %s", request);
  eventlog::trace(kAppDataSource, moreData ? "More Data Available" : "No More Data Available");
  HttpsMessageGenerator message;
  message.addProperties({{"result.type", "app.data"},
                         {"application.requestID", request},
                         {"application.request.complete", STRING::fromBool(!moreData)}});
  if (data && length > 0) {
    message.addBinary(data, static_cast<size_t>(length));
  } else {
    eventlog::trace(kAppDataSource, "Sending no ADR data. Only properties.");
  }
  if (AgentConfig::isAgentShuttingDown()) {
    eventlog::trace(kAppDataSource, "Agent Shutting Down. Stopping data transmission.");
    return -1;
  }
  const int result = send(APPLICATION_DATA, message);
  // The check runs twice on purpose: a failure stands in the log twice.
  eventlog::trace(kAppDataSource, "Sent Application Data with return code : %d",
                  checkRetStatus(result));
  return checkRetStatus(result);
}

PropertyList HttpsHandler::policyProperties() {
  const AgentConfig& config = *AgentConfig::getInstance();
  const STRING applied = config.getPolicyID();
  const STRING path = config.getPlusDBPath();
  // Without an applied policy the driver has nothing but its built-in one; one that waits for its
  // reboot has the recorded policy, and cannot say so yet.
  const bool awaited = preventionAwaitsReboot(config) && !path.empty();
  const bool builtIn = (applied.empty() && !awaited) ||
                       config.getPolicyStateCode() == kBuiltInPolicy ||
                       config.getPolicyErrorCode() == kBuiltInPolicy;
  return {{"rid.applied", applied},
          {"rid.group", config.getInitialGroup()},
          {"policy.name", config.getPlusVersion()},
          {"policy.path", builtIn ? STRING("builtin") : path}};
}

int HttpsHandler::sendAgentStatusMessage(bool) {
  const AgentConfig& config = *AgentConfig::getInstance();
  const int code = config.getPolicyErrorCode();
  const STRING text = config.getPolicyErrorStr();
  eventlog::trace(kHandlerSource, "::sendAgentStatusMessage -- Status=%d %s", code, text);
  platform::SystemInfo& system = platform::current().systemInfo;
  PropertyList pairs = policyProperties();
  append(pairs, {{"agent.timezone", system.timeZone()},
                 {"agent.domain.name", system.domainName()},
                 {"agent.osversion", config.getOS()}});
  return setUpdateResult(POLICY_UPDATE, code, text, pairs);
}

int HttpsHandler::sendPolicyStateMessage() {
  const AgentConfig& config = *AgentConfig::getInstance();
  const int code = config.getPolicyStateCode();
  const STRING text = config.getPolicyStateStr();
  eventlog::trace(kHandlerSource, "::sendPolicyStateMessage -- Error:=%d %s", code, text);
  return setUpdateResult(POLICY_UPDATE, code, text, policyProperties());
}

}  // namespace korvane
