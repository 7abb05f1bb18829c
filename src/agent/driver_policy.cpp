#include "agent/driver_policy.h"

#include "driver/driver_config.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr char kBuiltinText[] = "Driver is using the builtin policy and not the assigned policy.";
constexpr char kAssignedText[] =
    "Driver is no longer using the builtin policy and is using the previously assigned policy.";

}  // namespace

bool reportBuiltinPolicy(AgentConfig& config) {
  if (!DriverConfig::usingBuiltIn()) return false;
  config.setPolicyState(kBuiltinPolicyState, kBuiltinText);
  config.updatedDriverForBuiltIn();
  eventlog::event(EventId::builtInPolicyInUse, "KorvaneAgent");
  return true;
}

void reportPolicyChange(AgentConfig& config) {
  const bool builtin = DriverConfig::usingBuiltIn();
  const int state = builtin ? kBuiltinPolicyState : kAssignedPolicyState;
  config.setPolicyState(state, builtin ? kBuiltinText : kAssignedText);
  eventlog::trace("KorvaneAgent", "::setPolicyState - state=%d", state);
  eventlog::event(builtin ? EventId::builtInPolicyInUse : EventId::assignedPolicyInUse,
                  "KorvaneAgent");
}

void refreshPolicyIdentity(AgentConfig& config) {
  STRING name;
  STRING version;
  STRING identifier;
  if (!DriverConfig::queryPolicy(name, version, identifier)) return;
  config.setPlusID(identifier);
  config.setPlusVersion(name + " " + version);
}

}  // namespace korvane
