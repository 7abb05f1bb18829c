// The service type of this run: who manages this agent. It is read once at start from the
// registry value "AgentType" and never changes while the agent runs. Any thread may ask at any
// time.
#pragma once

namespace korvane {

// Keeps 1, 2 or 3; any other number counts as 0. The first number kept is never replaced.
void setServiceType(int type);
int serviceType();
// Reads "AgentType" (a string or a dword) from the registry and keeps it; a missing value leaves 0.
int readServiceType();

bool isStandardAgent();  // 1: managed by a management server
bool isCloudAgent();     // 2 or 3
bool isType3Agent();     // 3

}  // namespace korvane
