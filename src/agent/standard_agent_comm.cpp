#include "agent/standard_agent_comm.h"

#include <memory>
#include <optional>
#include <string>

#include "agent/policy_state.h"
#include "agent/registration_codes.h"
#include "comm/https_handler.h"
#include "comm/report_answer.h"
#include "config/install_root.h"
#include "config/policy_settings.h"
#include "config/prevention.h"
#include "config/server_settings.h"
#include "config/settings_file.h"
#include "eventlog/event_log.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "update/policy/policy_files.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kRegistrationTag[] = "MainThread";

std::unique_ptr<platform::File> openBuiltinPolicy(const PolicySettings& settings,
                                                  platform::Files& files) {
  const std::string shipped = platform::joinPath(files, {installDirectory(), "builtin.zip"});
  std::unique_ptr<platform::File> file;
  for (const std::string& path : {settings.getPlusPolicyFile().toUtf8(), shipped})
    if (!path.empty() && files.open(path, platform::OpenMode::read, file) == 0) return file;
  return nullptr;
}

// The bytes of the configured policy file, or else of the one that was shipped; none when
// there is neither.
std::optional<std::string> readBuiltinPolicy(const PolicySettings& settings,
                                             platform::Files& files) {
  const std::unique_ptr<platform::File> file = openBuiltinPolicy(settings, files);
  if (!file) {
    eventlog::trace(kRegistrationTag, "builtin policy not present ");
    return std::nullopt;
  }
  platform::FileInfo info;
  if (file->info(info) != 0 || info.isDirectory || info.size > kMaxPlusFileBytes) {
    eventlog::trace(kRegistrationTag,
                    "could not determine file size in order to read builtin policy ");
    return std::nullopt;
  }
  std::string policy(info.size, '\0');
  size_t got = 0;
  if (file->read(policy.data(), policy.size(), got) != 0) return std::nullopt;
  policy.resize(got);
  return policy;
}

}  // namespace

StandardAgentComm::StandardAgentComm(const Parts& parts)
    : _parts(parts), _onShutdown(shutdownToken(), [this] { _stop.request(); }) {}

void StandardAgentComm::stop() {
  _stop.request();
}

bool StandardAgentComm::testConnection() {
  return HttpsHandler(_parts.connection, _parts.server.getServerCurrent()).testConnection(true) !=
         0;
}

void StandardAgentComm::reportPolicyState() {
  if (stopped()) return;
  HttpsHandler handler(_parts.connection);
  // What the server still misses, the next status says.
  ignoreResult(reportTaken(handler, handler.sendPolicyStateMessage()));
}

bool StandardAgentComm::registerAgent(uint8_t& builtinReported) {
  if (_parts.server.registered()) return true;
  const std::optional<std::string> policy = readBuiltinPolicy(_parts.policy, _parts.files);
  eventlog::trace(kRegistrationTag, "call register on communication component");

  std::unique_ptr<HttpsHandler> handler;
  while (!stopped()) {
    handler = std::make_unique<HttpsHandler>(_parts.connection);
    // What changed meanwhile takes effect with the next attempt's handler.
    ignoreResult(_parts.file.loadIniFile());
    if (attempt(*handler, policy) == Attempt::finished) break;
    _stop.sleepFor(kRetryPauseMs);
  }
  if (stopped()) return true;

  const bool enrolled = keepIdentity(*handler);
  if (preventionInForce(_parts.policy) && reportBuiltinPolicy(_parts.policy, _parts.driver))
    builtinReported = 1;
  if (enrolled || stopped()) return true;
  eventlog::trace(kRegistrationTag, "Fatal Registration.");
  return false;
}

StandardAgentComm::Attempt StandardAgentComm::attempt(HttpsHandler& handler,
                                                      const std::optional<std::string>& policy) {
  const int code = handler.registerAgent(policy ? policy->data() : nullptr,
                                         policy ? static_cast<long>(policy->size()) : -1);
  if (stopped()) return Attempt::finished;
  if (classifyRegistration(code, "communications") == RegistrationVerdict::retry) {
    eventlog::trace(kRegistrationTag, "unsuccessful registration -- communications error %d ",
                    code);
    return Attempt::retry;
  }
  STRING text;
  const int serverError = handler.getKorvaneError(text);
  if (classifyRegistration(serverError, text) != RegistrationVerdict::retry)
    return Attempt::finished;
  if (!text.empty()) eventlog::event(EventId::registrationPutOff, kRegistrationTag, {text});
  return Attempt::retry;
}

bool StandardAgentComm::keepIdentity(HttpsHandler& handler) {
  STRING guid;
  if (handler.getGUID(guid) != 0) {
    eventlog::trace(kRegistrationTag, "could not get guid");
    return false;
  }
  eventlog::trace(kRegistrationTag, "guid is %s ", guid);
  _parts.server.setUniqueId(guid);
  // What cannot be written now is written by one of the next loads.
  ignoreResult(_parts.file.UpdateAllIni());
  eventlog::event(EventId::registered, kRegistrationTag);
  return true;
}

}  // namespace korvane
