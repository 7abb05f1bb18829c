// Whether prevention is in force: the settings want it, and the reboot that it needs is done.
//
// Pure functions of the settings of the moment; any thread. Nothing throws.
#pragma once

#include "config/policy_settings.h"

namespace korvane {

// Only then is the driver asked for anything, and a policy fetched for it.
inline bool preventionInForce(const PolicySettings& settings) {
  return settings.isIPSEnabled() && settings.isIPSRebootDone();
}

// Prevention is on and takes effect with the next reboot.
inline bool preventionAwaitsReboot(const PolicySettings& settings) {
  return settings.isIPSEnabled() && !settings.isIPSRebootDone();
}

}  // namespace korvane
