// What working on policies takes from the run of an agent.
//
// Who owns a PolicyProcessor (the update and the utility thread, the command channel, the main
// routine) takes the parts once and hands them down.
#pragma once

#include "update/policy/policy_news.h"
#include "update/policy/policy_pipeline.h"
#include "update/policy/policy_reports.h"
#include "update/policy/policy_turn.h"

namespace korvane {

class ServerConnection;

// What those who work on the policies of one run share.
struct PolicyShared {
  PolicyTurns turns;
  PolicyNews news;
  OwedPolicyReport owed;
};

// All of it outlives who is given it.
struct PolicyParts : PolicyPipeline::Parts {
  platform::Registry& registry;
  platform::SystemInfo& systemInfo;
  ServerConnection& connection;
  PolicyShared& shared;
};

// The calling thread's run's.
PolicyParts policyPartsOfRun();

}  // namespace korvane
