#include "ids/ids_log_names.h"

#include "config/agent_config.h"
#include "config/install_root.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr char kSearchTag[] = "LogDataHandler::initialize()";
constexpr uint32_t kPauseMs = 250;
constexpr int kTries = 480;
constexpr int kTriesPerTrace = 120;

bool takeName(HidsInterface& component, LogType type) {
  STRING name;
  if (!component.setting(idsLogSetting(type), name) || name.empty()) return false;
  const STRING path = resolveIdsLogName(name.toUtf8());
  AgentConfig* config = AgentConfig::getInstance();
  if (type == HIDS_RT_LOG) {
    config->setHIDSRTLogFile(path);
    eventlog::trace(kSearchTag, " setHIDSRTLogFile to %s", path);
  } else {
    config->setHIDSLogFile(path);
    eventlog::trace(kSearchTag, " setHIDSLogFile to %s", path);
  }
  return true;
}

}  // namespace

STRING idsLogSetting(LogType type) {
  if (type == HIDS_LOG) return "ids.service.eventfile.name";
  if (type == HIDS_RT_LOG) return "ids.service.rteventfile.name";
  return {};
}

bool findIdsLogFile(HidsInterface& component, LogType type,
                    const std::function<bool(uint32_t)>& giveUp) {
  const STRING setting = idsLogSetting(type);
  if (setting.empty()) return false;
  for (int tried = 1; !takeName(component, type); ++tried) {
    if (tried % kTriesPerTrace == 0) {
      eventlog::trace(kSearchTag, " failed to get %s. sleep.", setting);
    }
    if (tried == kTries) {
      eventlog::trace(kSearchTag, " failed to get %s", setting);
      return false;
    }
    if (giveUp(kPauseMs)) return false;
    component.reload();
  }
  return true;
}

bool takeIdsLogFiles(HidsInterface& component) {
  component.reload();
  const bool hasEventFile = takeName(component, HIDS_LOG);
  takeName(component, HIDS_RT_LOG);
  return hasEventFile;
}

}  // namespace korvane
