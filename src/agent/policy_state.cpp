#include "agent/policy_state.h"

#include "config/policy_settings.h"
#include "driver/driver.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr char kBuiltinText[] = "Driver is using the builtin policy and not the assigned policy.";
constexpr char kAssignedText[] =
    "Driver is no longer using the builtin policy and is using the previously assigned policy.";

void recordIdentity(PolicySettings& settings, const AppliedPolicy& policy) {
  settings.setPolicyIdentity(policy.id, policy.name + " " + policy.version);
}

}  // namespace

void refreshPolicyIdentity(PolicySettings& settings, Driver& driver) {
  AppliedPolicy policy;
  if (driver.queryPolicy(policy).ok()) recordIdentity(settings, policy);
}

bool reportBuiltinPolicy(PolicySettings& settings, Driver& driver) {
  AppliedPolicy policy;
  if (!driver.usingBuiltIn(policy).ok()) return false;
  if (policy.builtIn != 0) {
    settings.setPolicyState(kBuiltinPolicyState, kBuiltinText);
    settings.updatedDriverForBuiltIn();
    eventlog::event(EventId::builtInPolicyInUse, "KorvaneAgent");
  }
  recordIdentity(settings, policy);
  return policy.builtIn != 0;
}

void reportPolicyChange(PolicySettings& settings, Driver& driver) {
  AppliedPolicy policy;
  const bool answered = driver.usingBuiltIn(policy).ok();
  const bool builtin = answered && policy.builtIn != 0;
  const int state = builtin ? kBuiltinPolicyState : kAssignedPolicyState;
  settings.setPolicyState(state, builtin ? kBuiltinText : kAssignedText);
  eventlog::trace("KorvaneAgent", "::setPolicyState - state=%d", state);
  eventlog::event(builtin ? EventId::builtInPolicyInUse : EventId::assignedPolicyInUse,
                  "KorvaneAgent");
  settings.updatedDriverForBuiltIn();
  if (answered) recordIdentity(settings, policy);
}

}  // namespace korvane
