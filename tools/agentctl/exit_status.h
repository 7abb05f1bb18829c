// The exit status of agentctl. Scripts rely on these numbers: their meaning never changes.
#pragma once

#include <array>

namespace korvane::agentctl {

enum class ExitStatus {
  ok = 0,
  failed = 1,
  usage = 2,
  notRunning = 3,
  trouble = 4,
  notPermitted = 5
};

struct ExitStatusRow {
  ExitStatus status;
  const char* meaning;
};

inline constexpr auto kExitStatuses = std::to_array<ExitStatusRow>({
    {ExitStatus::ok, "success; no problem was found"},
    {ExitStatus::failed, "failed; the error text says what was tried and what to do next"},
    {ExitStatus::usage, "invalid command line"},
    {ExitStatus::notRunning, "the agent is not running"},
    {ExitStatus::trouble, "a problem was found: trouble, an invalid file, a failed stage"},
    {ExitStatus::notPermitted, "administrator rights are required"},
});

}  // namespace korvane::agentctl
