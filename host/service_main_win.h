// The program as the service manager starts it.
//
// The service is starting until the agent reports that it is up, with a checkpoint at each check; a
// stop or shutdown is acknowledged at once as stopping, again with checkpoints while the agent
// shuts down; it has stopped when startAgent has returned, never earlier. An unrequested end sets
// the exit status of the program as the service-specific error code, so that the failure actions
// apply. A process that has to be terminated at the stop deadline leaves the service unstopped,
// which the service manager treats as a failure.
//
// The program's messages go to IPS\logs\korvane-host.log of the installation; a file above a
// megabyte starts over at the next start.
#pragma once

#include "host/options.h"

namespace korvane::host {

// Returns when the service has stopped: the exit status. Once a process.
int runService(const Options& options);

// The registry's installation root; empty when it has none.
std::string registeredRoot();

}  // namespace korvane::host
