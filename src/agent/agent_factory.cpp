#include "agent/agent_factory.h"

#include "agent/agent_context.h"
#include "agent/agent_state_handler.h"
#include "agent/bulk_wiring.h"
#include "agent/standard_agent_comm.h"
#include "bulk/bulk_log_processing_thread.h"
#include "cloud/cloud_agent_comm.h"
#include "cloud/comm_thread.h"
#include "cloud/local_service.h"
#include "config/service_type.h"
#include "discovery/app_data_processing_thread.h"
#include "discovery/generic_app_data_processing_thread.h"
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
#include "update/supervised_update_thread.h"
#include "update/util_thread.h"

namespace korvane {
namespace {

AboutAgent aboutThisAgent(const AgentContext& context) {
  const platform::Platform& system = context.system;
  const auto state = [context](std::string (AgentStateHandler::*what)()) {
    return [context, what] {
      return (AgentStateHandler(context.settings, context.system.processes).*what)();
    };
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
std::unique_ptr<LogDestination> makeLogDestination(const AgentContext& context) {
  AgentShared& shared = context.shared;
  if (isStandardAgent())
    return std::make_unique<HttpsLogDestination>(context.connection, context.settings.server,
                                                 shared.counters);
  const platform::Platform& system = context.system;
  auto pipe = std::make_unique<RPCNamedPipe>(system.pipes, system.clock, kEventPipe,
                                             RPCNamedPipe::Role::server,
                                             platform::PipeAudience::administrators);
  return std::make_unique<RpcLogDestination>(
      std::move(pipe),
      RpcLogDestination::Parts{system.clock, context.stop, shared.counters,
                               [&shared] { return shared.forwarding.mayForward(); }});
}

AppDataParts appDataParts(const AgentContext& context) {
  return {context.system.files,
          context.system.clock,
          {context.settings.updates, context.settings.file},
          context.applicationData,
          context.shared.inventory,
          isStandardAgent() ? &context.connection : nullptr,
          isType3Agent()};
}

}  // namespace

std::unique_ptr<AgentComm> makeAgentComm(const AgentContext& context) {
  const Settings& settings = context.settings;
  if (isStandardAgent())
    return std::make_unique<StandardAgentComm>(
        StandardAgentComm::Parts{settings.server, settings.policy, settings.file,
                                 context.system.files, context.connection, context.driver});
  if (isCloudAgent())
    return std::make_unique<CloudAgentComm>(context.shared.connector, context.policies.shared.news);
  return nullptr;
}

Thread* makeLocalService(const AgentContext& context) {
  const platform::Platform& system = context.system;
  const Settings& settings = context.settings;
  return new LocalService(
      aboutThisAgent(context), system.pipes,
      {system.files,
       system.clock,
       system.systemInfo,
       settings.server,
       settings.policy,
       settings.logs,
       settings.file,
       context.driver,
       context.connection,
       context.shared.counters,
       context.shared.ledger,
       {{settings.updates, settings.file}, context.applicationData, !isStandardAgent()}});
}

Thread* makeComponentUpdate(const AgentContext& context) {
  return new ComponentUpdateThread(
      {context.content, context.system.clock, &AgentConfig::getHIDSInterface});
}
Thread* makeAppData(const AgentContext& context) {
  return new AppDataProcessingThread(appDataParts(context));
}
Thread* makeGenericAppData(const AgentContext& context) {
  return new GenericAppDataProcessingThread(appDataParts(context),
                                            isStandardAgent() || isType3Agent());
}
Thread* makeUpdate(AgentInfo* info) {
  return new SupervisedUpdateThread(info);
}
Thread* makeComm(const AgentContext& context, AgentInfo* info) {
  AgentShared& shared = context.shared;
  return new CommThread(info, {context.system.pipes,
                               context.system.clock,
                               {context.policies, context.settings.server, context.settings.machine,
                                shared.forwarding, shared.counters, shared.connector}});
}
Thread* makeUtil(AgentInfo* info) {
  return new UtilThread(info);
}

Thread* makeLogProcessing(const AgentContext& context) {
  AgentShared& shared = context.shared;
  const ForwardingParts parts{context.system.files,
                              context.system.clock,
                              context.stop,
                              context.settings.logs,
                              context.settings.machine,
                              AgentConfig::getHIDSInterface(),
                              shared.counters,
                              shared.ledger,
                              &logRulesOfRun()};
  auto thread = std::make_unique<LogProcessingThread>(shared.forwarding, parts.ids, parts.settings);
  thread->attach(std::make_unique<LogProcessor>(HIDS_RT_LOG, parts, makeLogDestination(context)));
  return thread.release();
}

Thread* makeBulkLogProcessing(const AgentContext& context) {
  return new BulkLogProcessingThread(bulkPartsOf(context));
}

}  // namespace korvane
