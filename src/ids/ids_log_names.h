// How the agent learns where the IDS component writes its logs.
#pragma once

#include "config/hids_interface.h"
#include "config/log_type.h"
#include "util/string.h"

namespace korvane {

class LogSettings;

// The setting that names a log: "ids.service.eventfile.name" or "ids.service.rteventfile.name";
// empty for a type that is not one of the IDS component's.
STRING idsLogSetting(LogType type);

// Takes the name of one log from the component's settings that were read last and stores it with
// setHIDSLogFile or setHIDSRTLogFile when it is another than before. False when the
// component names no such log.
bool fetchIdsLogFile(HidsInterface& component, LogSettings& logs, LogType type);

// One look without waiting, as the prevention monitor does it each time: reads the settings anew
// and stores the names of both logs. False when the component names no event file.
bool fetchIdsLogFiles(HidsInterface& component, LogSettings& logs);

}  // namespace korvane
