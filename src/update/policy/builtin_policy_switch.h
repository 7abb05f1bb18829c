// A request for the built-in policy, or for the assigned one again: "use.builtin.policy" among
// settings from the agent's management.
//
// The setting reflects the actual state: a request that the driver refuses is removed from the
// settings, and the driver is left as it was. The request is remembered and repeated every five
// minutes, until it succeeds, another one comes, a policy is loaded or the agent stops.
//
// Lifetime and threads: one object for the owner of the policy, used by its thread; driver and
// settings outlive it. Blocks for the driver's time-outs.
// Errors: a text; event 10581 when a request is refused, 10583 when it finally succeeds.
//
//   const STRING problem = request.follow(settings);   // before the settings are taken
#pragma once

#include <optional>

#include "util/property_list.h"

namespace korvane {

class Driver;
class PolicySettings;

// Tells the driver, when the settings have "use.builtin.policy" and the driver is not as that wants
// it. To be called before the settings are taken: whoever sees the changed setting asks the driver.
// An empty text, or why the driver refuses; registry and driver are as before then.
STRING applyBuiltInSetting(Driver& driver, const PropertyList& settings);

class BuiltInPolicySwitch {
 public:
  static constexpr int kPauseCycles = 300;

  BuiltInPolicySwitch(Driver& driver, PolicySettings& policy) : _driver(driver), _policy(policy) {}

  // As applyBuiltInSetting(); what is refused is taken out of the settings and tried again.
  STRING follow(PropertyList& settings);
  // A second has passed; enforceable: prevention is in force, so that there is a driver to ask.
  void step(bool enforceable);
  void forget() { _wanted.reset(); }

 private:
  Driver& _driver;
  PolicySettings& _policy;
  std::optional<bool> _wanted;
  int _pause = 0;
};

}  // namespace korvane
