#include "update/ids_log_names.h"

#include "config/agent_config.h"
#include "config/install_root.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

bool findLogName(HidsInterface& ids, const char* setting, STRING& path) {
  STRING name;
  if (!ids.setting(setting, name)) {
    eventlog::trace("processConfigPolicyUpdates", "IDS did not report log file name");
    return false;
  }
  path = resolveIdsLogName(name.toUtf8());
  return true;
}

}  // namespace

void recordIdsLogNames(AgentConfig& config) {
  HidsInterface* ids = AgentConfig::getHIDSInterface();
  if (!ids || !ids->present()) return;
  STRING path;
  if (findLogName(*ids, "ids.service.eventfile.name", path)) config.setHIDSLogFile(path);
  if (findLogName(*ids, "ids.service.rteventfile.name", path)) config.setHIDSRTLogFile(path);
}

}  // namespace korvane
