// Whether prevention is in force: what the settings want, and whether the machine has started since with it.
//
// Pure functions of the settings of the moment; any thread. Nothing throws.
#pragma once

#include "config/agent_config.h"

namespace korvane {

// Prevention is on and its reboot is done: only then is the driver asked for anything, or given a policy.
inline bool preventionInForce(const AgentConfig& config) {
  return config.isIPSEnabled() && config.isIPSRebootDone();
}

// Prevention is on and takes effect with the next reboot.
inline bool preventionAwaitsReboot(const AgentConfig& config) {
  return config.isIPSEnabled() && !config.isIPSRebootDone();
}

}  // namespace korvane
