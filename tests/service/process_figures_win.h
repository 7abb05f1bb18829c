// What a process holds, as the system lists it for all processes. (Under Wine GetProcessHandleCount
// answers 0, and a process's own handle count is the size of its table.)
#pragma once

#include <cstdint>
#include <string>

namespace korvane::tests {

struct ProcessFigures {
  int64_t handles = 0;
  int64_t threads = 0;
  int64_t residentKb = 0;

  // "58 handles, 9 threads, 30112 KB resident"
  std::string text() const;
};

// All zero when there is no such process.
ProcessFigures figuresOf(uint32_t processId);

}  // namespace korvane::tests
