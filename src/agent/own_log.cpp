#include "agent/own_log.h"

#include "config/agent_config.h"
#include "config/install_root.h"
#include "eventlog/event_log_file.h"
#include "platform/paths.h"
#include "platform/platform.h"

namespace korvane {
namespace {

constexpr char kCatalogueName[] = "korvane-events.txt";

eventlog::Settings settingsFrom(const AgentConfig& config) {
  platform::Platform& system = platform::current();
  eventlog::Settings settings;
  settings.directory = platform::joinPath(system.files, {installDirectory(), "logs"});
  settings.cataloguePath =
      platform::joinPath(system.files, {system.systemInfo.moduleDirectory(), kCatalogueName});
  settings.rolloverCause = eventlog::rolloverCause(config.getLogRolloverCause());
  settings.rolloverValue = eventlog::rolloverValue(config.getLogRolloverValue().toUtf8());
  settings.tracing = config.logTraceMessages();
  return settings;
}

}  // namespace

OwnLog::OwnLog(AgentConfig& config) {
  platform::Platform& system = platform::current();
  eventlog::EventLog::open(settingsFrom(config), system.files, system.clock);
  config.registerSubscriber(AgentConfig::SETTINGS_CHANGED, [](void* changed) {
    eventlog::EventLog::reconfigure(settingsFrom(*static_cast<AgentConfig*>(changed)));
  });
}

OwnLog::~OwnLog() {
  eventlog::EventLog::close();
}

}  // namespace korvane
