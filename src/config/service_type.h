// The service type of the process: who manages this agent. It is read once at start from the
// registry value "AgentType" and never changes while the agent runs. Any thread may ask at any
// time.
#pragma once

#include "platform/export.h"

namespace korvane {

// Keeps 1, 2 or 3; any other number counts as 0. The first number kept is never replaced.
KORVANE_EXPORT void setServiceType(int type);
KORVANE_EXPORT int serviceType();
// Forgets the type: startAgent calls it, so that a second start in one process reads it again.
KORVANE_EXPORT void resetServiceType();
// Reads "AgentType" (a string or a dword) from the registry and keeps it; a missing value leaves 0.
KORVANE_EXPORT int readServiceType();

KORVANE_EXPORT bool isStandardAgent();  // 1: managed by a management server
KORVANE_EXPORT bool isCloudAgent();     // 2 or 3
KORVANE_EXPORT bool isType3Agent();     // 3

}  // namespace korvane
