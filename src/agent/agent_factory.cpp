#include "agent/agent_factory.h"

#include "agent/agent_context.h"
#include "agent/standard_agent_comm.h"
#include "cloud/cloud_agent_comm.h"
#include "cloud/comm_thread.h"
#include "config/service_type.h"
#include "discovery/app_data_processing_thread.h"
#include "discovery/generic_app_data_processing_thread.h"
#include "driver/driver.h"
#include "logs/bulk_log_processing_thread.h"
#include "logs/log_processing_thread.h"
#include "logs/log_processor.h"
#include "platform/platform.h"
#include "update/component_update_thread.h"
#include "update/update_parts.h"
#include "update/update_thread.h"
#include "update/util_thread.h"

namespace korvane {

std::unique_ptr<AgentComm> makeAgentComm(const AgentContext& context) {
  const Settings& settings = context.settings;
  if (isStandardAgent())
    return std::make_unique<StandardAgentComm>(StandardAgentComm::Parts{
        settings.server, settings.policy, settings.file, context.system.files, context.driver});
  if (isCloudAgent()) return std::make_unique<CloudAgentComm>();
  return nullptr;
}

Thread* makeComponentUpdate() {
  return new ComponentUpdateThread(
      {contentPartsOfRun(), platform::current().clock, &AgentConfig::getHIDSInterface});
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
  return new CommThread(info);
}
Thread* makeUtil(AgentInfo* info) {
  return new UtilThread(info);
}

Thread* makeLogProcessing() {
  auto thread = std::make_unique<LogProcessingThread>();
  thread->attach(std::make_unique<LogProcessor>(HIDS_RT_LOG));
  return thread.release();
}

Thread* makeBulkLogProcessing() {
  return new BulkLogProcessingThread;
}

}  // namespace korvane
