// The processes of this machine, as /proc shows them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korvane::simulator {

struct ProcessEntry {
  uint32_t id = 0;
  uint32_t parent = 0;
  std::string image;  // full path, or the bare name when the path cannot be read
};

// Processes that end while they are looked at are left out.
std::vector<ProcessEntry> listProcesses();

}  // namespace korvane::simulator
