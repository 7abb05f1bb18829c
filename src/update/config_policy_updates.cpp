// Configuration and policy: fetched, applied, reported.
#include "comm/https_handler.h"
#include "config/agent_config.h"
#include "config/prevention.h"
#include "eventlog/event_log.h"
#include "update/update_result.h"
#include "update/update_thread.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kConfigSource[] = "UpdateThread";
constexpr char kConfigContext[] = "processConfigPolicyUpdates";

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

void UpdateThread::processConfigPolicyUpdates() {
  const int allowed =
      preventionInForce(*_config) ? UpdateExchange::kAllKinds : ~HttpsHandler::POLICY_UPDATE;
  const auto process = [this](HttpsHandler& handler, int kind) {
    if (kind == HttpsHandler::CONFIG_UPDATE)
      applyConfiguration(handler, kind);
    else
      applyPolicy(handler);
  };
  if (_configExchange.run(process, allowed, _bFirstPollRequired)) _bFirstPollRequired = false;
}

void UpdateThread::applyPolicy(HttpsHandler& handler) {
  if (!_policy.receivePolicy(handler)) return;
  reloadAutoRetransInterval();
  _builtInWish.forget();
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
  if (preventionInForce(*_config)) {
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
  if (preventionInForce(*_config)) ignoreResult(_policy.retranslatePolicy());
  // A stop leaves the request to the next start.
  if (_policy.stopped() || !_config->getRetranslateNow()) return;
  _config->setRetranslateNow(false);
  // What cannot be written now is written by one of the next loads.
  ignoreResult(_config->updateIniFile());
}

}  // namespace korvane
