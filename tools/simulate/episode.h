// An episode: some lives of an agent on one machine, with what befalls it drawn from a seed, and
// at its end an hour in which nothing does, so that everything that was promised must come about.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "simulate/machine.h"

namespace korvane::simulation {

struct EpisodePlan {
  uint64_t seed = 1;
  double mostHours = 1;
  bool tells = false;  // every exchange and every turn of events, on the standard error output
};

struct Outcome {
  std::vector<std::string> findings;
  size_t findingCount = 0;
  Counts faults;              // what befell the agent, by kind
  std::set<uint64_t> states;  // combinations of what goes on, as seen once a second
  int64_t ms = 0;             // of simulated time
  uint64_t starts = 0;
  std::string log;    // the agent's own, as it stands at the end
  uint64_t hash = 0;  // over the schedule and everything that was sent
};

Outcome runEpisode(const EpisodePlan& plan);

}  // namespace korvane::simulation
