#include "agent/own_log.h"

#include "agent/stop_step.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/log_settings.h"
#include "config/settings_file.h"
#include "eventlog/event_log.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "platform/system_info.h"

namespace korvane {
namespace {

constexpr char kCatalogueName[] = "korvane-events.txt";

eventlog::Settings defaultSettings(const platform::Platform& system) {
  eventlog::Settings settings;
  settings.directory = platform::joinPath(system.files, {installDirectory(), "logs"});
  settings.cataloguePath =
      platform::joinPath(system.files, {system.systemInfo.moduleDirectory(), kCatalogueName});
  return settings;
}

eventlog::Settings settingsFrom(const platform::Platform& system, const LogSettings& values) {
  eventlog::Settings settings = defaultSettings(system);
  settings.rolloverCause = eventlog::rolloverCause(values.getLogRolloverCause());
  settings.rolloverValue = eventlog::rolloverValue(values.getLogRolloverValue().toUtf8());
  settings.tracing = values.logTraceMessages();
  return settings;
}

}  // namespace

OwnLog::OwnLog(platform::Platform& system) : _system(system) {
  eventlog::EventLog::hold(system.clock);
}

// A thread that is left behind may still change a setting when this object is gone.
void OwnLog::open(const LogSettings& settings, SettingsFile& changes) {
  openWith(settingsFrom(_system, settings));
  _opened = true;
  changes.registerSubscriber(AgentConfig::SETTINGS_CHANGED, [&system = _system, &settings](void*) {
    eventlog::EventLog::reconfigure(settingsFrom(system, settings));
  });
}

OwnLog::~OwnLog() {
  if (!_opened) stopStep("own log", [this] { openWith(defaultSettings(_system)); });
  eventlog::EventLog::close();
}

void OwnLog::openWith(const eventlog::Settings& settings) {
  eventlog::EventLog::open(settings, _system.files, _system.clock);
}

}  // namespace korvane
