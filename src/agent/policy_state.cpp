#include "agent/policy_state.h"

#include "driver/driver.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr char kBuiltinText[] = "Driver is using the builtin policy and not the assigned policy.";
constexpr char kAssignedText[] =
    "Driver is no longer using the builtin policy and is using the previously assigned policy.";

void takeIdentity(AgentConfig& config, const AppliedPolicy& policy) {
  config.setPlusID(policy.id);
  config.setPlusVersion(policy.name + " " + policy.version);
}

}  // namespace

void refreshPolicyIdentity(AgentConfig& config, Driver& driver) {
  AppliedPolicy policy;
  if (driver.queryPolicy(policy).ok()) takeIdentity(config, policy);
}

bool reportBuiltinPolicy(AgentConfig& config, Driver& driver) {
  AppliedPolicy policy;
  if (!driver.usingBuiltIn(policy).ok()) return false;
  if (policy.builtIn != 0) {
    config.setPolicyState(kBuiltinPolicyState, kBuiltinText);
    config.updatedDriverForBuiltIn();
    eventlog::event(EventId::builtInPolicyInUse, "KorvaneAgent");
  }
  takeIdentity(config, policy);
  return policy.builtIn != 0;
}

void reportPolicyChange(AgentConfig& config, Driver& driver) {
  AppliedPolicy policy;
  const bool answered = driver.usingBuiltIn(policy).ok();
  const bool builtin = answered && policy.builtIn != 0;
  const int state = builtin ? kBuiltinPolicyState : kAssignedPolicyState;
  config.setPolicyState(state, builtin ? kBuiltinText : kAssignedText);
  eventlog::trace("KorvaneAgent", "::setPolicyState - state=%d", state);
  eventlog::event(builtin ? EventId::builtInPolicyInUse : EventId::assignedPolicyInUse,
                  "KorvaneAgent");
  config.updatedDriverForBuiltIn();
  if (answered) takeIdentity(config, policy);
}

}  // namespace korvane
