// What forwarding uses of its agent. All of it outlives what is made with it.
#pragma once

#include "platform/fwd.h"

namespace korvane {

class ForwardingCounters;
class HidsInterface;
class LogSettings;
class LossLedger;
class MachineFacts;
class StopToken;

struct ForwardingParts {
  platform::Files& files;
  platform::Clock& clock;
  StopToken& stop;  // of the agent
  LogSettings& settings;
  const MachineFacts& machine;
  HidsInterface* ids;  // null: nobody names the IDS component's logs
  ForwardingCounters& counters;
  LossLedger& ledger;
};

}  // namespace korvane
