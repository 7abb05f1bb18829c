// Configuration and policy: fetched, applied, reported.
#include <exception>

#include "comm/https_handler.h"
#include "config/hids_interface.h"
#include "config/policy_settings.h"
#include "config/prevention.h"
#include "config/settings_file.h"
#include "eventlog/event_log.h"
#include "ids/log_rules.h"
#include "update/update_result.h"
#include "update/update_thread.h"
#include "util/errors.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kConfigSource[] = "UpdateThread";
constexpr char kConfigContext[] = "processConfigPolicyUpdates";
constexpr char kConfigNotSaved[] = "Failed to save new configuration data from server to disk.";

}  // namespace

void UpdateThread::processConfigPolicyUpdates() {
  const int allowed = preventionInForce(_parts.settings.policy) ? UpdateExchange::kAllKinds
                                                                : ~HttpsHandler::POLICY_UPDATE;
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
  _builtInSwitch.forget();
}

UpdateResult UpdateThread::configureIds(const PropertyList& settings, const PropertyList& rules,
                                        int kind) {
  HidsInterface* ids = _parts.ids();
  if (!ids || !ids->present()) {
    eventlog::trace(kConfigContext, "No IDS component is installed to receive its settings");
    // They come along with the agent's own, to every agent.
    if (kind == HttpsHandler::CONFIG_UPDATE) return {};
    return {kNoIdsComponent, "The IDS component is not installed."};
  }
  if (!ids->applyConfiguration(settings, rules)) return {kDiskFailure, kConfigNotSaved};
  return readIdsResult(*ids, "IDS.Config", kConfigContext);
}

UpdateResult UpdateThread::takeLogRules(const PropertyList& rules) {
  RefusedRule refused;
  int error = 0;
  switch (_parts.logRules.replace(rules, refused, error)) {
    case LogRules::Outcome::refused:
      return {kLogRulesRefused, "No log rule counts because of " + refused.name + ": " +
                                    STRING(refused.reason) + "."};
    case LogRules::Outcome::notWritten:
      return {kDiskFailure, kConfigNotSaved};
    case LogRules::Outcome::inForce:
      break;
  }
  return {};
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
  // What the component answers cannot take back rules that the agent has.
  const UpdateResult taken = rules.empty() ? UpdateResult{} : takeLogRules(rules);
  if (!taken.ok()) rules.clear();
  std::exception_ptr corrupt;
  if (!rules.empty() || !idsSettings.empty()) {
    try {
      result = configureIds(idsSettings, rules, kind);
    } catch (const AgentError& error) {
      // The agent's own settings count all the same, and the server is told.
      corrupt = std::current_exception();
      result = {error.code(), error.text()};
    }
  }
  if (!taken.ok()) addProblem(result, taken);
  const bool wishMayCome = !_parts.settings.file.incoming().keptLocal("use.builtin.policy");
  if (wishMayCome && preventionInForce(_parts.settings.policy)) {
    const STRING problem = _builtInSwitch.follow(settings);
    if (!problem.empty() && result.ok()) result = {kPolicyFailure, problem};
  }
  RefusedSettings refused;
  if (!settings.empty() && !_parts.settings.file.newConfiguration(settings, refused))
    result = {kDiskFailure, kConfigNotSaved};
  addRefusals(result, refused);
  reportUpdateResult(_parts.policy.connection, kind, result, identity);
  if (corrupt) std::rethrow_exception(corrupt);
}

void UpdateThread::retranslateOnRequest() {
  PolicySettings& settings = _parts.settings.policy;
  if (!settings.getRetranslateNow()) return;
  if (preventionInForce(settings)) {
    // It takes the request back, unless the agent stops; a failure is in the history.
    ignoreResult(_policy.retranslatePolicy());
    return;
  }
  settings.setRetranslateNow(false);
  // What cannot be written now is written by one of the next loads.
  ignoreResult(_parts.settings.file.updateIniFile());
}

}  // namespace korvane
