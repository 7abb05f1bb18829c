#include "ids/ids_log_names.h"

#include "config/agent_config.h"
#include "config/install_root.h"
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

bool takeIdsLogFile(HidsInterface& component, LogType type) {
  STRING name;
  if (!component.setting(idsLogSetting(type), name) || name.empty()) return false;
  const STRING path = resolveIdsLogName(name.toUtf8());
  AgentConfig* config = AgentConfig::getInstance();
  if (config->getCurrentLogFile(type) == path) return true;
  if (type == HIDS_RT_LOG) {
    config->setHIDSRTLogFile(path);
    eventlog::trace(kSearchTag, " setHIDSRTLogFile to %s", path);
  } else {
    config->setHIDSLogFile(path);
    eventlog::trace(kSearchTag, " setHIDSLogFile to %s", path);
  }
  return true;
}

bool takeIdsLogFiles(HidsInterface& component) {
  // What was read before stays when the settings cannot be read now.
  ignoreResult(component.reload());
  const bool hasEventFile = takeIdsLogFile(component, HIDS_LOG);
  takeIdsLogFile(component, HIDS_RT_LOG);
  return hasEventFile;
}

}  // namespace korvane
