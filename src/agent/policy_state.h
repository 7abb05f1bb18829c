// What the main routine and the registration step ask the driver about its policy, and record in
// the settings. Each function asks it once. Main thread only; nothing throws.
#pragma once

#include "config/agent_config.h"

namespace korvane {

class Driver;
class PolicySettings;

// Policy state codes and texts that tell whether the driver runs its built-in policy.
inline constexpr int kBuiltinPolicyState = AgentConfig::kBuiltInPolicyState;
inline constexpr int kAssignedPolicyState = -101;

// Takes identifier and version of the driver's current policy into the settings, when the
// driver tells.
void refreshPolicyIdentity(PolicySettings& settings, Driver& driver);

// The same, and when it is the built-in policy: records state -100 and writes event 10104.
// Tells whether it did.
[[nodiscard]] bool reportBuiltinPolicy(PolicySettings& settings, Driver& driver);

// For a driver whose use of the built-in policy has changed: records the state that holds now (-100
// with event 10104, or -101 with event 10166) and the policy's identity, as above.
void reportPolicyChange(PolicySettings& settings, Driver& driver);

}  // namespace korvane
