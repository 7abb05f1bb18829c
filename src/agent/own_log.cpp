#include "agent/own_log.h"

#include "agent/stop_step.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "eventlog/event_log_file.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "platform/system_info.h"

namespace korvane {
namespace {

constexpr char kCatalogueName[] = "korvane-events.txt";

eventlog::Settings defaultSettings() {
  platform::Platform& system = platform::current();
  eventlog::Settings settings;
  settings.directory = platform::joinPath(system.files, {installDirectory(), "logs"});
  settings.cataloguePath =
      platform::joinPath(system.files, {system.systemInfo.moduleDirectory(), kCatalogueName});
  return settings;
}

eventlog::Settings settingsFrom(const AgentConfig& config) {
  eventlog::Settings settings = defaultSettings();
  settings.rolloverCause = eventlog::rolloverCause(config.getLogRolloverCause());
  settings.rolloverValue = eventlog::rolloverValue(config.getLogRolloverValue().toUtf8());
  settings.tracing = config.logTraceMessages();
  return settings;
}

void openWith(const eventlog::Settings& settings) {
  platform::Platform& system = platform::current();
  eventlog::EventLog::open(settings, system.files, system.clock);
}

}  // namespace

OwnLog::OwnLog() {
  eventlog::EventLog::hold(platform::current().clock);
}

void OwnLog::open(AgentConfig& config) {
  openWith(settingsFrom(config));
  _opened = true;
  config.registerSubscriber(AgentConfig::SETTINGS_CHANGED, [](void* changed) {
    eventlog::EventLog::reconfigure(settingsFrom(*static_cast<AgentConfig*>(changed)));
  });
}

OwnLog::~OwnLog() {
  if (!_opened) stopStep("own log", [] { openWith(defaultSettings()); });
  eventlog::EventLog::close();
}

}  // namespace korvane
