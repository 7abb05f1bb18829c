#include "ids/ids_log_names.h"

#include "config/install_root.h"
#include "config/log_settings.h"
#include "eventlog/event_log.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kSearchTag[] = "LogDataHandler::initialize()";

}  // namespace

STRING idsLogSetting(LogType type) {
  if (type == HIDS_LOG) return "ids.service.eventfile.name";
  if (type == HIDS_RT_LOG) return "ids.service.rteventfile.name";
  return {};
}

bool fetchIdsLogFile(HidsInterface& component, LogSettings& logs, LogType type) {
  STRING name;
  if (!component.setting(idsLogSetting(type), name) || name.empty()) return false;
  const STRING path = resolveIdsLogName(name.toUtf8());
  if (logs.getCurrentLogFile(type) == path) return true;
  if (type == HIDS_RT_LOG) {
    logs.setHIDSRTLogFile(path);
    eventlog::trace(kSearchTag, " setHIDSRTLogFile to %s", path);
  } else {
    logs.setHIDSLogFile(path);
    eventlog::trace(kSearchTag, " setHIDSLogFile to %s", path);
  }
  return true;
}

bool fetchIdsLogFiles(HidsInterface& component, LogSettings& logs) {
  // What was read before stays when the settings cannot be read now.
  ignoreResult(component.reload());
  const bool hasEventFile = fetchIdsLogFile(component, logs, HIDS_LOG);
  fetchIdsLogFile(component, logs, HIDS_RT_LOG);
  return hasEventFile;
}

}  // namespace korvane
