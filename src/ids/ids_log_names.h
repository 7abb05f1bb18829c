// How the agent learns where the IDS component writes its logs.
#pragma once

#include "config/hids_interface.h"
#include "config/log_settings.h"
#include "config/log_type.h"
#include "config/settings.h"
#include "util/string.h"

namespace korvane {

// The setting that names a log: "ids.service.eventfile.name" or "ids.service.rteventfile.name";
// empty for a type that is not one of the IDS component's.
STRING idsLogSetting(LogType type);

// Takes the name of one log from the component's settings that were read last and stores it with
// setHIDSLogFile or setHIDSRTLogFile when it is another than before. False when the
// component names no such log.
bool takeIdsLogFile(HidsInterface& component, LogSettings& logs, LogType type);
inline bool takeIdsLogFile(HidsInterface& component, LogType type) {
  return takeIdsLogFile(component, settingsOf(*AgentConfig::getInstance()).logs, type);
}

// One look without waiting, as the prevention monitor does it each time: reads the settings anew
// and stores the names of both logs. False when the component names no event file.
bool takeIdsLogFiles(HidsInterface& component, LogSettings& logs);
inline bool takeIdsLogFiles(HidsInterface& component) {
  return takeIdsLogFiles(component, settingsOf(*AgentConfig::getInstance()).logs);
}

}  // namespace korvane
