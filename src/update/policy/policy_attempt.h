// What PolicyProcessor remembers of one translation while it runs, and of the policy that
// it is for.
#pragma once

#include "update/policy/policy_files.h"
#include "update/policy/policy_history.h"
#include "update/policy/policy_processor.h"

namespace korvane {

// A policy from the server.
struct PolicyProcessor::Received {
  STRING name;  // as the server calls it, the version included
  STRING path;  // in the server's database
};

struct PolicyProcessor::Attempt {
  Attempt(const STRING& plus, const STRING& name);

  // The record as it stands now, its duration included.
  HistoryRecord finished() const;

  STRING plusFile;
  PolicyFiles files;
  HistoryRecord record;
  int64_t startedMs;  // monotonic
  bool hadMinus = false;
};

}  // namespace korvane
