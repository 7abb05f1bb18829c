// The host program behind its entry point, which differs between the systems in how arguments are
// passed.
#pragma once

#include <string>
#include <vector>

namespace korvane::host {

// `arguments` are UTF-8, without the program's name. Returns the exit status.
int runProgram(const std::vector<std::string>& arguments);

}  // namespace korvane::host
