#include "agent/agent_state_handler.h"

#include "config/machine_facts.h"
#include "config/prevention.h"
#include "config/service_type.h"
#include "config/update_settings.h"
#include "eventlog/event_log.h"
#include "platform/processes.h"

namespace korvane {
namespace {

constexpr char kOnline[] = "Online\n";
constexpr char kOffline[] = "Offline\n";
constexpr char kReboot[] = "Reboot\n";
constexpr char kIdsImage[] = "KAVIDSService.exe";

const char* word(bool works) {
  return works ? kOnline : kOffline;
}

}  // namespace

AgentStateHandler::AgentStateHandler(const Settings& settings, platform::Processes& processes)
    : _policy(settings.policy),
      _discovery(settings.updates),
      _machine(settings.machine),
      _processes(processes) {}

AgentStateHandler::~AgentStateHandler() = default;

std::string AgentStateHandler::getTechNames() {
  return "IDS IPS APP_DISCOVERY AGENT_FRAMEWORK";
}

std::string AgentStateHandler::getAgentVersion() {
  return _machine.getKorvaneVersion().toUtf8();
}

std::string AgentStateHandler::getTechStatus() {
  const bool awaitsReboot = preventionAwaitsReboot(_policy);
  if (awaitsReboot) eventlog::trace("AgentStateHandler::getTechStatus", "status = reboot");
  const char* framework = word(preventionInForce(_policy));
  const bool discovery =
      isType3Agent() ? _discovery.isCloudAppDiscoveryOn() : _discovery.isLocalAppDiscoveryOn();
  std::string status = std::string("IPS ") + (awaitsReboot ? kReboot : framework);
  status += std::string("IDS ") + word(_processes.isRunning(kIdsImage));
  status += std::string("APP_DISCOVERY ") + word(discovery);
  if (isType3Agent()) status += std::string("AGENT_FRAMEWORK ") + framework;
  return status;
}

}  // namespace korvane
