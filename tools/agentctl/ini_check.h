// Reads an ini file as the agent does and says, line by line, what it does not take and what it takes but
// can hardly have been meant. docs/agentctl.md lists the faults. Pure functions of bytes.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::agentctl {

struct IniFinding {
  size_t line = 1;
  bool error = false;  // otherwise a warning
  std::string text;
};

// In the order of the lines. `needsChecksum`: a file without one counts as damaged.
std::vector<IniFinding> checkIni(std::string_view bytes, bool needsChecksum);

}  // namespace korvane::agentctl
