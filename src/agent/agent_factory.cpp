#include "agent/agent_factory.h"

#include "agent/agent_state_handler.h"
#include "agent/run_parts.h"
#include "agent/standard_agent_comm.h"
#include "agent/thread/stop_token.h"
#include "cloud/cloud_agent_comm.h"
#include "cloud/comm_thread.h"
#include "cloud/local_service.h"
#include "config/service_type.h"
#include "config/settings.h"
#include "discovery/app_data_processing_thread.h"
#include "discovery/generic_app_data_processing_thread.h"
#include "driver/driver.h"
#include "logs/bulk_log_processing_thread.h"
#include "logs/https_log_destination.h"
#include "logs/log_processing_thread.h"
#include "logs/log_processor.h"
#include "logs/rpc_log_destination.h"
#include "platform/clock.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "rpc/pipe_names.h"
#include "rpc/rpc_named_pipe.h"
#include "update/component_update_thread.h"
#include "update/update_thread.h"
#include "update/util_thread.h"

namespace korvane {
namespace {

Settings currentSettings() {
  return settingsOf(*AgentConfig::getInstance());
}

AboutAgent aboutThisAgent() {
  platform::Platform& system = platform::current();
  const auto state = [&system](std::string (AgentStateHandler::*what)()) {
    return [&system, what] { return (AgentStateHandler(system.processes).*what)(); };
  };
  AboutAgent about;
  about.techStatus = state(&AgentStateHandler::getTechStatus);
  about.techNames = state(&AgentStateHandler::getTechNames);
  about.version = state(&AgentStateHandler::getAgentVersion);
  about.started = AgentConfig::isAgentStarted;
  about.shuttingDown = AgentConfig::isAgentShuttingDown;
  about.processId = system.processes.currentId();
  about.startedWallMs = system.clock.wallMs();
  about.startedMonotonicMs = system.clock.monotonicMs();
  return about;
}

// The management server for a standard agent, the local event channel for any other.
std::unique_ptr<LogDestination> makeLogDestination() {
  RunParts& shared = runParts();
  if (isStandardAgent())
    return std::make_unique<HttpsLogDestination>(currentSettings().server, shared.counters);
  platform::Platform& system = platform::current();
  auto pipe = std::make_unique<RPCNamedPipe>(system.pipes, system.clock, kEventPipe,
                                             RPCNamedPipe::Role::server);
  return std::make_unique<RpcLogDestination>(
      std::move(pipe),
      RpcLogDestination::Parts{system.clock, shutdownToken(), shared.counters,
                               [&shared] { return shared.forwarding.mayForward(); }});
}

}  // namespace

std::unique_ptr<AgentComm> makeAgentComm(AgentConfig& config) {
  if (isStandardAgent()) return std::make_unique<StandardAgentComm>(config, currentDriver());
  if (isCloudAgent()) return std::make_unique<CloudAgentComm>(runParts().connector);
  return nullptr;
}

Thread* makeLocalService() {
  platform::Platform& system = platform::current();
  const Settings settings = currentSettings();
  return new LocalService(
      aboutThisAgent(), system.pipes,
      {system.files, system.clock, system.systemInfo, settings.server, settings.policy,
       settings.logs, settings.file, currentDriver(), runParts().counters});
}

Thread* makeComponentUpdate() {
  return new ComponentUpdateThread;
}
Thread* makeAppData() {
  return new AppDataProcessingThread;
}
Thread* makeGenericAppData() {
  return new GenericAppDataProcessingThread;
}
Thread* makeUpdate(AgentInfo* info) {
  return new UpdateThread(info);
}
Thread* makeComm(AgentInfo* info) {
  platform::Platform& system = platform::current();
  const Settings settings = currentSettings();
  RunParts& shared = runParts();
  return new CommThread(
      info, {system.pipes,
             system.clock,
             {system.files, settings.server, settings.policy, settings.machine, settings.file,
              shared.forwarding, shared.counters, shared.connector}});
}
Thread* makeUtil(AgentInfo* info) {
  return new UtilThread(info);
}

Thread* makeLogProcessing() {
  platform::Platform& system = platform::current();
  const Settings settings = currentSettings();
  RunParts& shared = runParts();
  const ForwardingParts parts{system.files,   system.clock,     shutdownToken(),
                              settings.logs,  settings.machine, AgentConfig::getHIDSInterface(),
                              shared.counters};
  auto thread = std::make_unique<LogProcessingThread>(shared.forwarding, parts.ids);
  thread->attach(std::make_unique<LogProcessor>(HIDS_RT_LOG, parts, makeLogDestination()));
  return thread.release();
}

Thread* makeBulkLogProcessing() {
  return new BulkLogProcessingThread;
}

}  // namespace korvane
