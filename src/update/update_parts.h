// What the update thread takes from the run of an agent, and hands down to its steps.
#pragma once

#include "config/hids_interface.h"
#include "config/settings.h"
#include "update/content_kinds.h"
#include "update/policy/policy_parts.h"

namespace korvane {

class AppDataRequests;
class LogRules;

// All of it outlives who is given it.
struct UpdateParts {
  PolicyParts policy;
  ContentParts content;
  platform::Sockets& sockets;
  Settings settings;
  AppDataRequests& applicationData;
  // The IDS component of the moment, or null.
  HidsInterface* (*ids)();
  LogRules& logRules;
};

// The calling thread's run's.
UpdateParts updatePartsOfRun();
ContentParts contentPartsOfRun();
LogRules& logRulesOfRun();

}  // namespace korvane
