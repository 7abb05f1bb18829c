// Policy and configuration of the IDS component: fetched, handed over, reported.
#include <memory>

#include "comm/https_handler.h"
#include "config/agent_config.h"
#include "eventlog/event_log.h"
#include "ids/hids_component.h"
#include "update/update_result.h"
#include "update/update_thread.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kIdsSource[] = "UpdateThread";
constexpr char kIdsContext[] = "processHIDSPolicyUpdate";
constexpr char kRetranslationContext[] = "processHIDSPolicyRetranslate";
constexpr char kPolicyNameProperty[] = "policy.name.ids";
constexpr char kPolicyPathProperty[] = "policy.path.ids";
constexpr char kNotSaved[] = "failed to save new policy data to permanent storage";

// Hands a translated policy over and gives what the component made of it.
UpdateResult handOver(const STRING& resultFile, const char* context) {
  HidsInterface* ids = AgentConfig::getHIDSInterface();
  if (!ids || !ids->present()) return {kNoIdsComponent, "The IDS component is not installed."};
  if (!ids->applyPolicy(resultFile)) return {kDiskFailure, kNotSaved};
  return readIdsResult(*ids, "IDS.Policy", context);
}

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
  int size = 0;
  PropertyList properties;
  const std::unique_ptr<char[]> bytes(handler.getPolicy(status, size, properties, /*ids=*/true));
  PropertyList names;
  for (const char* name : {kPolicyNameProperty, kPolicyPathProperty}) {
    const STRING* value = findProperty(properties, name);
    if (!value) continue;
    eventlog::trace(kIdsContext, "items server sent %s=%s", name, *value);
    names.emplace_back(name, *value);
  }
  const UpdateResult result =
      installIdsPolicy({bytes.get(), bytes ? static_cast<size_t>(size) : 0}, names);
  // What a stop cut short is fetched again after the next start.
  if (_policy.stopped()) return;
  reportUpdateResult(HttpsHandler::POLICY_UPDATE_HIDS, result, names);
}

UpdateResult UpdateThread::installIdsPolicy(std::string_view bytes,
                                            const PropertyList& properties) {
  if (bytes.empty()) return {kNothingNew, "No new policy data provided."};
  if (propertyValue(properties, kPolicyPathProperty).empty())
    return {kNoInformation, "Policy information (path) not provided"};
  eventlog::trace(kIdsContext, "Policy Path OK");
  const STRING plusFile = _policy.savePolicyToFile(bytes.data(), bytes.size());
  if (plusFile.empty()) return {kDiskFailure, kNotSaved};
  UpdateResult result;
  STRING resultFile;
  if (_policy.translateHIDSPolicy(plusFile, resultFile)) {
    result = handOver(resultFile, kIdsContext);
  } else {
    result = {kPolicyFailure, _policy.errorText()};
    if (!_policy.stopped())
      eventlog::event(EventId::idsPolicyNotTranslated, kIdsContext, {result.text});
  }
  if (result.ok()) _config->setIDSPlusFileName(plusFile);
  // A component that has not answered may still read the file.
  const bool mayBeInUse =
      result.code == HidsComponent::kNoAnswer || result.code == HidsComponent::kStopped;
  if (!mayBeInUse) PolicyProcessor::RemovePrevHIDSPolicies();
  return result;
}

void UpdateThread::retranslateIdsOnRequest() {
  if (!_config->getRetranslateIDSNow()) return;
  const STRING plusFile = _config->getIDSPlusFileName();
  STRING resultFile;
  if (_policy.translateHIDSPolicy(plusFile, resultFile)) {
    const UpdateResult result = handOver(resultFile, kRetranslationContext);
    if (result.ok())
      eventlog::trace(kIdsSource, "Policy retranslation done for IDS policy: '%s'", plusFile);
    else
      eventlog::trace(kIdsSource, "Result of Policy retranslation of IDS policy: '%s' is: '%s'",
                      plusFile, result.text);
  } else if (!_policy.stopped()) {
    eventlog::event(EventId::idsPolicyNotTranslated, kIdsContext, {_policy.errorText()});
  }
  if (!_config->getRetranslateIDSNow()) return;
  _config->setRetranslateIDSNow(false);
  // What cannot be written now is written by one of the next loads.
  ignoreResult(_config->updateIniFile());
}

}  // namespace korvane
