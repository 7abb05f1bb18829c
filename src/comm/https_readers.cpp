#include <algorithm>
#include <cstdio>
#include <cstring>

#include "comm/https_handler.h"
#include "comm/server_connection.h"
#include "comm/update_kinds.h"
#include "config/setting_check.h"
#include "eventlog/event_log.h"
#include "platform/paths.h"

namespace korvane {
namespace {

constexpr int kAnswerError = -2;
constexpr int kMissing = -1;
constexpr char kConfigurationSource[] = "HttpsHandler::getConfiguration";
constexpr char kBinarySource[] = "HttpsHandler::getBinaryData";
constexpr char kEmptyContent[] = "Empty";
constexpr char kModTime[] = "mod.time";
constexpr char kAppliedRid[] = "rid.applied";
constexpr uint64_t kMaxDiagnosticBytes = 64 * 1024 * 1024;

// What is outstanding; the settings of signatures begin alike.
bool isPolling(const STRING& name) {
  return (name.startsWith("update.") && !name.startsWith("update.signing.")) ||
         name.startsWith("send.");
}
bool isIds(const STRING& name) {
  return name.startsWith("ids.");
}
bool isLogRule(const STRING& name) {
  return name.startsWith("Log.");
}
bool isIdentity(const STRING& name) {
  return name == STRING(kModTime) || name == STRING(kAppliedRid);
}
bool isSetting(const STRING& name) {
  return !isPolling(name) && !isIds(name) && !isLogRule(name) && !isIdentity(name) &&
         !comesWithPolicy(name);
}

// The text as one field of a comma-separated line.
STRING asOneField(const STRING& text) {
  std::u16string field;
  for (char16_t unit : text.utf16()) {
    if (unit == u'"') continue;
    field += unit == u',' || unit < u' ' ? u' ' : unit;
  }
  return field;
}

void tracePair(const char* format, EventId missingEvent, const PropertyList& pairs,
               const char* name, const STRING& server) {
  if (const STRING* value = findProperty(pairs, name)) {
    eventlog::trace(kConfigurationSource, format, name, *value);
  } else {
    eventlog::event(missingEvent, kConfigurationSource, {server});
  }
}

// For the caller to delete[]; null unless there is a package.
char* copyOf(std::string_view package, int status, int& size) {
  size = static_cast<int>(package.size());
  if (status != 1) return nullptr;
  auto bytes = std::make_unique<char[]>(package.size());
  if (!package.empty()) std::memcpy(bytes.get(), package.data(), package.size());
  return bytes.release();
}

const UpdateKind* kindOf(int bit) {
  for (const UpdateKind& kind : kUpdateKinds) {
    if (kind.bit == bit) return &kind;
  }
  return nullptr;
}

}  // namespace

bool HttpsHandler::asked(int kind) const {
  return _lastType == GET_UPDATE && (_lastKinds & kind);
}

bool HttpsHandler::answered() const {
  return _last.code == 0 && _last.httpStatus <= kOkStatus;
}

STRING HttpsHandler::answerProperty(const STRING& name) const {
  for (const PropertyList& list : _last.answer->properties()) {
    if (const STRING* value = findProperty(list, name)) return *value;
  }
  return {};
}

PropertyList HttpsHandler::answerGroup(bool (*belongs)(const STRING& name)) const {
  PropertyList group;
  size_t size = 0;
  for (const PropertyList& list : _last.answer->properties())
    size += static_cast<size_t>(std::count_if(
        list.begin(), list.end(), [belongs](const Property& pair) { return belongs(pair.first); }));
  group.reserve(size);
  for (const PropertyList& list : _last.answer->properties()) {
    for (const Property& pair : list) {
      if (belongs(pair.first)) group.push_back(pair);
    }
  }
  return group;
}

int HttpsHandler::readGroup(bool (*belongs)(const STRING& name), PropertyList& out) const {
  out = answerGroup(belongs);
  if (_last.answer->errorCode() != 0) return kAnswerError;
  return answered() ? 0 : kMissing;
}

// The binary sections stand in the order of the kinds, one for each kind asked for that the answer
// says "true" to; in an answer that speaks of none of them, one for each kind asked for.
const ResponseParser::Binary* HttpsHandler::binaryOf(int wanted) const {
  if (!asked(wanted)) return nullptr;
  const int kinds = kBinaryKinds & _lastKinds;
  const bool announced =
      std::any_of(kUpdateKinds.begin(), kUpdateKinds.end(), [this, kinds](const UpdateKind& kind) {
        return (kind.bit & kinds) && !answerProperty(kind.requestKey).empty();
      });
  size_t index = 0;
  for (const UpdateKind& kind : kUpdateKinds) {
    if (!(kind.bit & kinds)) continue;
    if (announced && answerProperty(kind.requestKey) != STRING("true")) continue;
    if (kind.bit == wanted) {
      return index < _last.answer->binaries().size() ? &_last.answer->binaries()[index] : nullptr;
    }
    ++index;
  }
  return nullptr;
}

std::string_view HttpsHandler::viewPackage(int kind, int& status, PropertyList& properties) {
  status = kAnswerError;
  if (_last.answer->errorCode() != 0) return {};
  status = kMissing;
  if (!asked(kind) || !answered()) return {};
  status = 0;
  if (answerProperty(kindOf(kind)->requestKey) != STRING("true")) return {};
  status = kMissing;
  const ResponseParser::Binary* part = binaryOf(kind);
  if (!part) return {};
  properties = answerGroup([](const STRING&) { return true; });
  status = 1;
  return part->bytes;
}

std::string_view HttpsHandler::viewPolicy(int& status, PropertyList& properties, bool ids) {
  const std::string_view policy =
      viewPackage(ids ? POLICY_UPDATE_HIDS : POLICY_UPDATE, status, properties);
  if (status == 0) eventlog::trace("HttpsHandler::getPolicy", "No Policy Update");
  if (status == 1)
    eventlog::trace("HttpsHandler::getPolicy()", "Policy size in zip %d",
                    static_cast<int>(policy.size()));
  return policy;
}

char* HttpsHandler::getPolicy(int& status, int& size, PropertyList& properties, bool ids) {
  const std::string_view policy = viewPolicy(status, properties, ids);
  return copyOf(policy, status, size);
}

std::string_view HttpsHandler::viewSoftware(int& status, PropertyList& properties) {
  const std::string_view package = viewPackage(SOFTWARE_UPDATE, status, properties);
  if (status == 0) eventlog::trace("HttpsHandler::getSoftware", "No Software Update");
  return package;
}

char* HttpsHandler::getSoftware(int& status, int& size, PropertyList& properties) {
  const std::string_view package = viewSoftware(status, properties);
  return copyOf(package, status, size);
}

int HttpsHandler::GetGeneralProperties(PropertyList& out, PropertyList& identity) {
  out.clear();
  identity.clear();
  if (_last.answer->errorCode() != 0) return kAnswerError;
  if (!asked(CONFIG_UPDATE | CONFIG_UPDATE_HIDS) || !answered()) return kMissing;
  if (answerProperty("update.configuration") != STRING("true")) {
    eventlog::trace(kConfigurationSource, "No Configuration change received");
    return 0;
  }
  out = answerGroup(&isSetting);
  identity = answerGroup(&isIdentity);
  tracePair("Mod Time %s %s", EventId::configurationWithoutTime, identity, kModTime, _to.server);
  tracePair("Applied RID %s %s", EventId::configurationWithoutId, identity, kAppliedRid,
            _to.server);
  return 0;
}

int HttpsHandler::GetIDSProperties(PropertyList& out) {
  return readGroup(&isIds, out);
}

int HttpsHandler::GetLogRules(PropertyList& out) {
  const int result = readGroup(&isLogRule, out);
  for (const Property& rule : out) {
    eventlog::trace("HttpsHandler::GetLogRules", "%s=%s", rule.first, rule.second);
  }
  return result;
}

int HttpsHandler::GetPollingProperties(PropertyList& out) {
  const int result = readGroup(&isPolling, out);
  for (const Property& pair : out) {
    eventlog::trace("HttpsHandler::GetPollingProperties", "%s=%s", pair.first, pair.second);
  }
  return result;
}

int HttpsHandler::getGUID(STRING& guid) {
  if (_last.answer->errorCode() != 0) return kAnswerError;
  if (!answered() || _last.answer->properties().empty()) return kMissing;
  const STRING assigned = propertyValue(_last.answer->properties().front(), "agent.id");
  if (assigned.empty()) return kMissing;
  guid = assigned;
  return 0;
}

int HttpsHandler::getPiggyBackedUpdate(PropertyList& out) {
  if (_last.answer->errorCode() != 0) return kAnswerError;
  const bool hasKinds = _lastType == GET_UPDATE || _lastType == SET_UPDATE_RESULT;
  PropertyList own;
  for (const UpdateKind& kind : kUpdateKinds)
    if (hasKinds && (_lastKinds & kind.bit)) own.emplace_back(kind.requestKey, "true");
  for (const PropertyList& section : _last.answer->properties()) {
    if (std::none_of(own.begin(), own.end(), [&section](const Property& notice) {
          return propertyIsTrue(section, notice.first);
        }))
      continue;
    out.clear();
    for (const Property& pair : section)
      if (!isPolling(pair.first) || findProperty(own, pair.first)) out.push_back(pair);
    return 1;
  }
  std::fputs("No PiggyBacked Update \n", stdout);
  return 0;
}

void HttpsHandler::noteApplicationRequest() const {
  const bool answersReport = _lastType == SET_UPDATE_RESULT || _lastType == APPLICATION_DATA;
  if (!answersReport || answerProperty("send.application.request") != STRING("true")) return;
  const STRING identifier = answerProperty("send.application.requestID");
  if (identifier.empty()) return;
  _connection.offerApplicationRequest(identifier);
}

std::string_view HttpsHandler::viewBinaryData(const STRING& name) {
  if (_last.answer->errorCode() != 0) return {};
  const ResponseParser::Binary* part = answered() ? binaryOf(getUpdateAsINT(name)) : nullptr;
  if (!part)
    eventlog::trace(kBinarySource, "No Freshline data from Server");
  else if (part->bytes.empty())
    eventlog::trace(kBinarySource, "Freshline content from sever is empty. %s", kEmptyContent);
  else
    eventlog::trace(kBinarySource, "Freshline binary data received.");
  return part ? part->bytes : std::string_view();
}

int HttpsHandler::getBinaryData(STRING name, std::string*& out) {
  out = nullptr;
  const std::string_view bytes = viewBinaryData(name);
  if (_last.answer->errorCode() != 0) return kAnswerError;
  const bool part = answered() && binaryOf(getUpdateAsINT(name));
  if (!part) return kMissing;
  out = &_handedOut.emplace_back(bytes.empty() ? kEmptyContent : bytes);
  return bytes.empty() ? kMissing : 0;
}

int HttpsHandler::getKorvaneError(STRING& text) {
  const int code = _last.answer->errorCode();
  if (code == 0) return 0;
  text = asOneField(_last.answer->errorText().value_or(ResponseParser::kNoErrorText));
  return code;
}

void HttpsHandler::readMinus(std::string& out) {
  platform::Files& files = _connection.files();
  std::string bytes;
  const std::string path = platform::joinPath(files, {".", "Korvane-uni.zip"});
  if (platform::readWholeFile(files, path, kMaxDiagnosticBytes, bytes) != 0 || bytes.empty())
    return;
  out = std::move(bytes);
}

int HttpsHandler::getUpdateAsINT(const STRING& name) {
  for (const UpdateKind& kind : kUpdateKinds) {
    if (name == STRING(kind.name)) return kind.bit;
  }
  return 0;
}

STRING HttpsHandler::getUpdateAsString(int bit) {
  const UpdateKind* kind = kindOf(bit);
  return kind ? STRING(kind->shortName) : STRING();
}

}  // namespace korvane
