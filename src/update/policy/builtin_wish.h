// Settings from whoever manages the agent that ask for the built-in policy, or for the assigned one again.
#pragma once

#include "util/property_list.h"

namespace korvane {

// Tells the driver, when the settings have "use.builtin.policy" and the driver is not as that wants it. To be
// called before the settings are taken: whoever sees the changed setting asks the driver. Blocks for the driver's
// time-outs; called by the owner of the policy.
void followBuiltInWish(const PropertyList& settings);

}  // namespace korvane
