// agentctl: the operator's command line.
#include "agentctl/command_line.h"
#include "platform/program_entry.h"

int korvane::programMain(const std::vector<std::string>& arguments) {
  return agentctl::runCommandLine(arguments);
}
