// Reads an ini file as the agent does and lists, line by line, what the agent rejects and what it
// accepts but was probably not intended. docs/agentctl.md lists the faults. Pure functions of
// bytes.
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
