// What the main routine and the registration step ask the driver about its policy, and record in the
// settings. Main thread only; nothing throws.
#pragma once

#include "config/agent_config.h"

namespace korvane {

// Policy state codes and texts that tell whether the driver runs its built-in policy.
inline constexpr int kBuiltinPolicyState = AgentConfig::kBuiltInPolicyState;
inline constexpr int kAssignedPolicyState = -101;

// When the driver uses its built-in policy: records state -100 and writes event 10104. Tells whether it did.
[[nodiscard]] bool reportBuiltinPolicy(AgentConfig& config);

// Records the state that holds now (-100 with event 10104, or -101 with event 10166), for a driver whose
// use of the built-in policy has changed.
void reportPolicyChange(AgentConfig& config);

// Takes identifier and version of the driver's current policy into the settings, when the driver tells.
void refreshPolicyIdentity(AgentConfig& config);

}  // namespace korvane
