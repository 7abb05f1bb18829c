// How agentctl ends. Scripts build on these numbers: they never change their meaning.
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
    {ExitStatus::ok, "done; what was looked at is well"},
    {ExitStatus::failed, "it could not be done; the error text says what was tried and what to do"},
    {ExitStatus::usage, "the command line is wrong"},
    {ExitStatus::notRunning, "the agent does not run"},
    {ExitStatus::trouble, "the answer is not good: trouble, a faulty file, a stage that failed"},
    {ExitStatus::notPermitted, "only an administrator may do that"},
});

}  // namespace korvane::agentctl
