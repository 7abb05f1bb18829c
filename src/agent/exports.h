// What the library exports to its host, beside the exported classes. Neither throws, nothing
// ends the process, and loading the library does no work.
//
// startAgent: runs the whole agent on the calling thread, which should be dedicated to it,
//   and returns when the agent has stopped. Nothing of an earlier agent is left for it, so
//   that start, stop, start works. While an agent runs, another call does nothing and
//   returns null. The AgentInfo that it returns belongs to the library and lives until the
//   next startAgent; null when it could not be created.
// stopAgent: stops the agent and returns when startAgent's main routine is over; at once when there
//   is no agent. Any thread, any number of times, at any moment: one that comes before startAgent
//   has made its agent is lost, so a host calls again until startAgent has returned.
#pragma once

#include "util/export.h"

namespace korvane {
class AgentInfo;
}

extern "C" {

KORVANE_EXPORT korvane::AgentInfo* startAgent();
KORVANE_EXPORT const char* stopAgent();

}  // extern "C"
