// What a start finds of its own installation.
#pragma once

#include "platform/fwd.h"

namespace korvane {

// Looks at owner and rights of what the agent loads, runs and reads. Throws std::runtime_error, which
// names each path, when strangers may change what it cannot do without: its library, the installation
// root, IPS, agent.ini, the registry file, the run directory. The translator program is told of
// (event 10564) and not run. Where faults are allowed there is an event for each (10563) instead.
void lookAtInstallation(platform::Platform& system);

// Removes what writes of an agent that crashed have left, but those of agent.ini, which go with the
// first load. The caller's agent writes nothing yet.
void removeUnfinishedFiles(platform::Files& files);

}  // namespace korvane
