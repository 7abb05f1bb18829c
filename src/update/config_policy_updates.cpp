// Configuration and policy: fetched, applied, reported.
#include "comm/https_handler.h"
#include "config/agent_config.h"
#include "eventlog/event_log.h"
#include "update/server_answer.h"
#include "update/update_result.h"
#include "update/update_thread.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kConfigSource[] = "UpdateThread";
constexpr char kConfigContext[] = "processConfigPolicyUpdates";
constexpr int kEventConfigRefused = 10217;
constexpr int kBothKinds = HttpsHandler::CONFIG_UPDATE | HttpsHandler::POLICY_UPDATE;

UpdateResult configureIds(const PropertyList& settings, const PropertyList& rules, int kind) {
  HidsInterface* ids = AgentConfig::getHIDSInterface();
  if (!ids || !ids->present()) {
    eventlog::trace(kConfigContext, "No IDS component is installed to receive its settings");
    // They come along with the agent's own, to every agent.
    if (kind == HttpsHandler::CONFIG_UPDATE) return {};
    return {kNoIdsComponent, "The IDS component is not installed."};
  }
  if (!ids->applyConfiguration(settings, rules))
    return {kDiskFailure, "Failed to save new configuration data from server to disk."};
  return readIdsResult(*ids, "IDS.Config", kConfigContext);
}

}  // namespace

int UpdateThread::takeConfigPolicyKinds() {
  int kinds = 0;
  if (_configRetry.due()) {
    kinds = _configRetry.kinds;
  } else {
    if (_pending.configuration) kinds |= HttpsHandler::CONFIG_UPDATE;
    if (_pending.policy) kinds |= HttpsHandler::POLICY_UPDATE;
    _pending.configuration = _pending.policy = false;
  }
  return preventionInForce() ? kinds : kinds & ~HttpsHandler::POLICY_UPDATE;
}

void UpdateThread::processConfigPolicyUpdates() {
  const int kinds = takeConfigPolicyKinds();
  if (kinds == 0) return;
  eventlog::trace(
      kConfigSource,
      "::processConfigPolicyUpdates : httpSender.getUpdate: pollFor=%d, _bFirstPollRequired=%d",
      kinds, static_cast<int>(_bFirstPollRequired));
  HttpsHandler handler;
  if (handler.getUpdate(kinds, _bFirstPollRequired) != 0) return _configRetry.clear();
  const ServerAnswer answer = takeServerAnswer(handler, kEventConfigRefused);
  _lastServerError = answer.code;
  if (answer.refused()) return;
  if (answer.accepted()) _configRetry.clear();
  if (answer.comeBackLater()) {
    eventlog::trace(kConfigSource,
                    "UpdateThread::processConfigPolicyUpdates : Server asked us to retry after "
                    "sometime. Retry count %d",
                    _configRetry.count);
    _configRetry.refuse(kBothKinds);
  }
  _bFirstPollRequired = false;
  if (!answer.accepted()) return;
  if (kinds & HttpsHandler::CONFIG_UPDATE) applyConfiguration(handler, HttpsHandler::CONFIG_UPDATE);
  if ((kinds & HttpsHandler::POLICY_UPDATE) && _policy.receivePolicy(handler)) {
    reloadAutoRetransInterval();
    _builtInWish.forget();
  }
}

void UpdateThread::applyConfiguration(HttpsHandler& handler, int kind) {
  PropertyList settings;
  PropertyList identity;
  PropertyList rules;
  PropertyList idsSettings;
  if (handler.GetGeneralProperties(settings, identity) != 0) return;
  // An answer without them leaves the lists empty.
  ignoreResult(handler.GetLogRules(rules));
  ignoreResult(handler.GetIDSProperties(idsSettings));
  for (const Property& rule : rules)
    eventlog::trace(kConfigSource, "UpdateThread::processConfigPolicyUpdates: Add Log Rule:%s",
                    rule.first);

  UpdateResult result;
  if (settings.empty() && identity.empty() && rules.empty() && idsSettings.empty())
    result = {kNothingNew, "No new configuration data provided."};
  if (!rules.empty() || !idsSettings.empty()) result = configureIds(idsSettings, rules, kind);
  if (preventionInForce()) {
    const STRING problem = _builtInWish.follow(settings);
    if (!problem.empty() && result.ok()) result = {kPolicyFailure, problem};
  }
  std::vector<RefusedSetting> refused;
  if (!settings.empty() && !_config->newConfiguration(settings, refused))
    result = {kDiskFailure, "Failed to save new configuration data from server to disk."};
  addRefusals(result, refused);
  reportUpdateResult(kind, result, identity);
}

void UpdateThread::retranslateOnRequest() {
  if (!_config->getRetranslateNow()) return;
  // The failure has been told as the policy's error.
  if (preventionInForce()) ignoreResult(_policy.retranslatePolicy());
  // A stop leaves the request to the next start.
  if (_policy.stopped() || !_config->getRetranslateNow()) return;
  _config->setRetranslateNow(false);
  // What cannot be written now is written by one of the next loads.
  ignoreResult(_config->updateIniFile());
}

}  // namespace korvane
