// Policy and configuration of the IDS component: fetched, handed over, reported.

#include "comm/https_handler.h"
#include "config/policy_settings.h"
#include "config/settings_file.h"
#include "eventlog/event_log.h"
#include "ids/hids_component.h"
#include "update/policy/proof.h"
#include "update/update_result.h"
#include "update/update_thread.h"
#include "util/errors.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kIdsSource[] = "UpdateThread";
constexpr char kIdsContext[] = "processHIDSPolicyUpdate";
constexpr char kRetranslationContext[] = "processHIDSPolicyRetranslate";
constexpr char kPolicyNameProperty[] = "policy.name.ids";
constexpr char kPolicyPathProperty[] = "policy.path.ids";
constexpr char kNotSaved[] = "failed to save new policy data to permanent storage";

}  // namespace

void UpdateThread::processHIDSPolicyUpdate() {
  const auto process = [this](HttpsHandler& handler, int kind) {
    if (kind == HttpsHandler::POLICY_UPDATE_HIDS)
      applyIdsPolicy(handler);
    else
      applyConfiguration(handler, kind);
  };
  if (_idsExchange.run(process, UpdateExchange::kAllKinds, _bFirstPollRequired))
    _bFirstPollRequired = false;
}

void UpdateThread::applyIdsPolicy(HttpsHandler& handler) {
  int status = 0;
  PropertyList properties;
  const std::string_view bytes = handler.viewPolicy(status, properties, /*ids=*/true);
  PropertyList names;
  for (const char* name : {kPolicyNameProperty, kPolicyPathProperty}) {
    const STRING* value = findProperty(properties, name);
    if (!value) continue;
    eventlog::trace(kIdsContext, "items server sent %s=%s", name, *value);
    names.emplace_back(name, *value);
  }
  const auto report = [&](const UpdateResult& result) {
    reportUpdateResult(_parts.policy.connection, HttpsHandler::POLICY_UPDATE_HIDS, result, names);
  };
  try {
    // What a stop cut short is fetched again after the next start.
    if (const std::optional<UpdateResult> result = installIdsPolicy(bytes, names)) report(*result);
  } catch (const AgentError& error) {
    report({error.code(), error.text()});
    throw;
  }
}

UpdateResult UpdateThread::handOver(const STRING& resultFile, const char* context) {
  HidsInterface* ids = _parts.ids();
  if (!ids || !ids->present()) return {kNoIdsComponent, "The IDS component is not installed."};
  if (!ids->applyPolicy(resultFile)) return {kDiskFailure, kNotSaved};
  return readIdsResult(*ids, "IDS.Policy", context);
}

std::optional<UpdateResult> UpdateThread::installIdsPolicy(std::string_view bytes,
                                                           const PropertyList& properties) {
  if (bytes.empty()) return UpdateResult{kNothingNew, "No new policy data provided."};
  if (propertyValue(properties, kPolicyPathProperty).empty())
    return UpdateResult{kNoInformation, "Policy information (path) not provided"};
  eventlog::trace(kIdsContext, "Policy Path OK");
  const trust::Verdict verdict =
      prove({_parts.policy.files, _parts.policy.clock, _parts.policy.settings},
            {trust::Kind::idsPolicy}, bytes);
  if (!verdict.accepted()) return UpdateResult{verdict.refusal.code(), verdict.refusal.text};
  const STRING plusFile = _policy.savePolicyToFile(verdict.content.data(), verdict.content.size());
  if (plusFile.empty()) return UpdateResult{kDiskFailure, kNotSaved};
  UpdateResult result;
  STRING resultFile;
  const PolicyOutcome translated = _policy.translateHIDSPolicy(plusFile, resultFile);
  if (translated) {
    result = handOver(resultFile, kIdsContext);
  } else {
    result = {translated.code, translated.text};
    if (!translated.stopped())
      eventlog::event(EventId::idsPolicyNotTranslated, kIdsContext, {result.text});
  }
  if (translated && result.ok()) _parts.settings.policy.setIDSPlusFileName(plusFile);
  // A component that has not answered may still read the file.
  const bool mayBeInUse =
      result.code == HidsComponent::kNoAnswer || result.code == HidsComponent::kStopped;
  if (!mayBeInUse) _policy.RemovePrevHIDSPolicies();
  return translated.stopped() ? std::nullopt : std::optional(result);
}

void UpdateThread::retranslateIdsOnRequest() {
  PolicySettings& settings = _parts.settings.policy;
  if (!settings.getRetranslateIDSNow()) return;
  const STRING plusFile = settings.getIDSPlusFileName();
  STRING resultFile;
  const PolicyOutcome translated = _policy.translateHIDSPolicy(plusFile, resultFile);
  if (translated) {
    const UpdateResult result = handOver(resultFile, kRetranslationContext);
    if (result.ok())
      eventlog::trace(kIdsSource, "Policy retranslation done for IDS policy: '%s'", plusFile);
    else
      eventlog::trace(kIdsSource, "Result of Policy retranslation of IDS policy: '%s' is: '%s'",
                      plusFile, result.text);
  } else if (!translated.stopped()) {
    eventlog::event(EventId::idsPolicyNotTranslated, kIdsContext, {translated.text});
  }
  if (!settings.getRetranslateIDSNow()) return;
  settings.setRetranslateIDSNow(false);
  // What cannot be written now is written by one of the next loads.
  ignoreResult(_parts.settings.file.updateIniFile());
}

}  // namespace korvane
