// The program as the service manager starts it.
//
// The service is starting until the agent says that it has come up, each look a further check-point; a stop
// or shutdown is acknowledged at once as stopping, again with check-points while the agent winds up; it has
// stopped when startAgent has returned, never earlier. An end that nobody asked for gives the exit status
// of the program as the service's own error code, so that the failure actions apply. A process that has to
// be ended at the stop deadline leaves the service unstopped, which the service manager takes for a failure.
//
// What the program has to say goes to IPS\logs\korvane-host.log of the installation; a file above a megabyte
// begins anew at the next start.
#pragma once

#include "host/options.h"

namespace korvane::host {

// Returns when the service has stopped: the exit status. Once a process.
int runService(const Options& options);

// The registry's installation root; empty when it has none.
std::string registeredRoot();

}  // namespace korvane::host
