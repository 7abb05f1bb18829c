// log_model --schedules N --seed S: schedules of the log model with the seeds from S on, against
// the agent's forwarding. Ends with one JSON line; a failure is printed with its whole schedule,
// which one schedule alone (N = 1) prints in any case. Exit status 1 when one failed.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tests/logs/model/schedule.h"

using namespace korvane::log_model;

int main(int argc, char** argv) {
  uint64_t schedules = 20000, seed = 1;
  for (int i = 1; i < argc; ++i) {
    const bool more = i + 1 < argc;
    if (more && std::strcmp(argv[i], "--schedules") == 0) {
      schedules = std::strtoull(argv[++i], nullptr, 10);
    } else if (more && std::strcmp(argv[i], "--seed") == 0) {
      seed = std::strtoull(argv[++i], nullptr, 10);
    } else {
      std::fprintf(stderr, "usage: log_model [--schedules N] [--seed S]\n");
      return 2;
    }
  }
  Counts counts;
  for (uint64_t next = seed; next < seed + schedules;) {
    const uint64_t before = counts.schedules;
    const std::string failure =
        runSchedules(next, seed + schedules - next, makeAgentForwarder, counts);
    if (!failure.empty()) std::printf("%s\n", failure.c_str());
    next += counts.schedules - before;
    if (counts.failures >= 20) break;
  }
  if (schedules == 1 && counts.failures == 0) {
    Counts again;
    runSchedule(seed, makeAgentForwarder, again,
                [](const std::string& line) { std::printf("%s\n", line.c_str()); });
  }
  std::printf("%s\n", counts.json(seed).c_str());
  return counts.failures ? 1 : 0;
}
