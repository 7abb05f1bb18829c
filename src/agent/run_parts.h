// What the threads of a run share beside its settings and its driver. Made by the first of the
// composition root that asks; lives as long as the run. Threads: any.
#pragma once

#include "cloud/connector_presence.h"
#include "logs/forwarding_counters.h"
#include "logs/forwarding_switch.h"

namespace korvane {

struct RunParts {
  RunParts();

  ForwardingCounters counters;
  ForwardingSwitch forwarding;
  ConnectorPresence connector;
};

// The current run's.
RunParts& runParts();

}  // namespace korvane
