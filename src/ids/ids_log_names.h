// How the agent learns where the IDS component writes its logs.
#pragma once

#include <functional>

#include "config/hids_interface.h"
#include "config/log_type.h"
#include "util/string.h"

namespace korvane {

// The setting that names a log: "ids.service.eventfile.name" or "ids.service.rteventfile.name"; empty for
// a type that is not one of the IDS component's.
STRING idsLogSetting(LogType type);

// Looks for the name of one log, every 250 ms for two minutes, the component's settings being read anew
// before each try but the first, and stores it with AgentConfig::setHIDSLogFile or setHIDSRTLogFile. The two
// logs are looked for independently. False when the name was not found or `giveUp` said so: it is called
// between tries and waits the given milliseconds; true ends the search.
bool findIdsLogFile(HidsInterface& component, LogType type,
                    const std::function<bool(uint32_t)>& giveUp);

// One look without waiting, as the prevention monitor does it each time: reads the settings anew and stores
// the names of both logs. False when the component names no event file.
bool takeIdsLogFiles(HidsInterface& component);

}  // namespace korvane
