// Takes the names of the IDS component's event logs into the settings, where event forwarding finds them.
//
// The two names are looked for independently; one that the component does not report stays as it was,
// with a trace line. Nothing happens without an IDS component. Any thread.
#pragma once

namespace korvane {

class AgentConfig;

void recordIdsLogNames(AgentConfig& config);

}  // namespace korvane
