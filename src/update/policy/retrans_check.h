// Whether this machine has changed in a way that the translation of the policy in force
// depended on.
//
// Paths and local addresses are asked of the translator library where there is one and of the
// system where there is none, the rest of the system. What cannot be told counts as unchanged.
//
// Lifetime and threads: belongs to one thread, that of the policy's processing; what it is made of
// outlives it.
// Errors: an items file that cannot be read or understood is event 10590 or 10591 with its
// path, line and reason; there are no items then, and nothing is retranslated by itself
// until the next policy.
//
//   RetransCheck check({files, registry, systemInfo}, driver, settings);
//   check.loadRetransItems(policyBase + ".trans");
//   check.checkRetrans();   // may set the settings' request for a retranslation
#pragma once

#include "update/policy/machine_state.h"
#include "update/policy/retrans_items.h"
#include "util/string.h"

namespace korvane {

class Driver;
class PolicySettings;

class RetransCheck {
 public:
  RetransCheck(const MachineState::Sources& sources, Driver& driver, PolicySettings& settings)
      : _sources(sources), _driver(driver), _settings(settings) {}

  // Replaces the items by those of the file at `path`, a full path. False when it was not read; a
  // missing file is only traced.
  [[nodiscard]] bool loadRetransItems(const STRING& path);
  // Compares the items with the machine, tracing each change, and sets the request for a
  // retranslation (PolicySettings::setRetranslateNow) when there is one; true then. With the
  // built-in policy in force nothing is compared.
  bool checkRetrans();

  const RetransItems& items() const { return _items; }

 private:
  const MachineState::Sources _sources;
  Driver& _driver;
  PolicySettings& _settings;
  RetransItems _items;
};

}  // namespace korvane
