#include "host/commands.h"

namespace korvane::host {

void addSystemCommands(CLI::App&, CLI::App& run, Options&, Command&) {
  run.get_option("--install-root")->required();
}

}  // namespace korvane::host
