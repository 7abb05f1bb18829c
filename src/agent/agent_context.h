// The parts that one run of the agent is made of, as the composition root hands them out.
//
// Only src/agent knows the whole; whatever is made here takes the parts that it uses. Refers to
// parts of the run, which live for as long as it does.
#pragma once

#include "cloud/connector_presence.h"
#include "config/settings.h"
#include "discovery/machine_inventory.h"
#include "ledger/loss_ledger.h"
#include "logs/forwarding_counters.h"
#include "logs/forwarding_switch.h"
#include "platform/fwd.h"
#include "update/policy/policy_parts.h"
#include "update/update_parts.h"

namespace korvane {

class AppDataRequests;
class ServerConnection;

// What the threads of a run share beside its settings, its driver and its policies. Any thread.
struct AgentShared {
  AgentShared();

  ForwardingCounters counters;
  ForwardingSwitch forwarding;
  LossLedger ledger;
  ConnectorPresence connector;
  MachineInventory inventory;
};

struct AgentContext {
  platform::Platform& system;
  StopToken& stop;
  Settings settings;
  Driver& driver;
  ServerConnection& connection;
  PolicyParts policies;
  ContentParts content;
  AgentShared& shared;
  AppDataRequests& applicationData;
};

// Of the run that the calling thread has entered. Loads the settings the first time.
[[nodiscard]] AgentContext contextOfRun();

}  // namespace korvane
