#include "update/policy/policy_processor.h"

#include <memory>

#include "comm/https_handler.h"
#include "config/policy_settings.h"
#include "eventlog/event_log.h"
#include "platform/paths.h"
#include "update/policy/proof.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kReceivedTag[] = "processConfigPolicyUpdates";

}  // namespace

PolicyProcessor::PolicyProcessor(const PolicyParts& parts)
    : _pipeline(parts),
      _reports({parts.shared.owed, parts.shared.news, parts.settings, parts.connection}),
      _housekeeping({parts.files, parts.clock, parts.driver, parts.settings}),
      _retrans({parts.files, parts.registry, parts.systemInfo}, parts.driver, parts.settings),
      _parts(parts),
      _clock(parts.clock) {}

bool PolicyProcessor::reconcile() {
  const Reconciled found = reconcilePolicy(_parts);
  if (found != Reconciled::failed) _housekeeping.sweep();
  _reports.begin(found);
  return found != Reconciled::failed;
}

PolicyOutcome PolicyProcessor::receivePolicy(HttpsHandler& handler) {
  int status = 0;
  int size = 0;
  PropertyList properties;
  const std::unique_ptr<char[]> bytes(handler.getPolicy(status, size, properties, false));
  const std::string_view received(bytes.get(), bytes ? static_cast<size_t>(size) : 0);
  if (received.empty()) return installPolicy(received, properties);
  const trust::Verdict verdict =
      prove({_parts.files, _clock, _parts.settings}, {trust::Kind::policy}, received);
  if (verdict.accepted()) return installPolicy(verdict.content, properties);
  return told(PolicyOutcome::failed(verdict.refusal.text, verdict.refusal.code()));
}

PolicyOutcome PolicyProcessor::installPolicy(std::string_view bytes,
                                             const PropertyList& properties) {
  return told(install(bytes, properties));
}

PolicyOutcome PolicyProcessor::told(const PolicyOutcome& outcome) {
  if (outcome.stopped()) return outcome;
  if (!outcome) eventlog::trace(kReceivedTag, "%s", outcome.text);
  _reports.tell(outcome);
  return outcome;
}

PolicyOutcome PolicyProcessor::install(std::string_view bytes, const PropertyList& properties) {
  for (const char* name : {"policy.name", "policy.path"})
    if (const STRING* value = findProperty(properties, name))
      eventlog::trace(kReceivedTag, "items server sent %s=%s", name, *value);
  if (bytes.empty()) return PolicyOutcome::failed("No new policy data provided.", kNothingNew);
  const ReceivedPolicy received{propertyValue(properties, "policy.name"),
                                propertyValue(properties, "policy.path")};
  if (received.path.empty())
    return PolicyOutcome::failed("Policy information (path) not provided", kNoInformation);
  eventlog::trace(kReceivedTag, "Policy Path OK");
  STRING former = _parts.settings.getPlusPolicyFile();
  const STRING plusFile = _housekeeping.savePolicyToFile(bytes.data(), bytes.size());
  if (plusFile.empty())
    return PolicyOutcome::failed("failed to save new policy data to permanent storage",
                                 kDiskFailure);
  const PolicyOutcome outcome = _pipeline.install(plusFile, received);
  if (!outcome) {
    const bool unsaid = outcome.text.empty() && !outcome.stopped();
    return unsaid ? PolicyOutcome::failed("The saved policy cannot be read.") : outcome;
  }
  if (!former.empty() && former != plusFile) _housekeeping.removeOldPolicyFiles(former);
  _housekeeping.sweep();
  // Without its items a policy is not checked for retranslation; that has been told.
  ignoreResult(loadRetransItems());
  return outcome;
}

PolicyOutcome PolicyProcessor::retranslatePolicy() {
  const PolicyOutcome outcome = _pipeline.retranslatePolicy();
  // Without its items a policy is not checked for retranslation; that has been told.
  if (outcome || outcome.result == PolicyOutcome::Result::unchanged)
    ignoreResult(loadRetransItems());
  return outcome;
}

bool PolicyProcessor::loadRetransItems() {
  const STRING plus = _parts.settings.getPlusPolicyFile();
  return !plus.empty() && _retrans.loadRetransItems(PolicyFiles(plus).items);
}

STRING PolicyProcessor::getPolicyBase(const STRING& path) {
  return policyBaseOf(path);
}

STRING PolicyProcessor::getPolicyFileName(const STRING& path) {
  return platform::fileNameOf(path.toUtf8());
}

}  // namespace korvane
