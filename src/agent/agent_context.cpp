#include "agent/agent_context.h"

#include "agent/thread/stop_token.h"
#include "comm/server_connection.h"
#include "config/agent_config.h"
#include "config/settings.h"
#include "discovery/app_data_requests.h"
#include "driver/driver.h"
#include "platform/platform.h"
#include "util/agent_run.h"

namespace korvane {

AgentShared::AgentShared()
    : counters(platform::current().clock),
      ledger(platform::current().files, platform::current().clock),
      connector(platform::current().clock),
      inventory(platform::current().clock, platform::current().files) {}

AgentContext contextOfRun() {
  return {platform::current(),
          shutdownToken(),
          settingsOf(*AgentConfig::getInstance()),
          currentDriver(),
          currentConnection(),
          policyPartsOfRun(),
          contentPartsOfRun(),
          AgentRun::current().part<AgentShared>(RunPart::shared),
          AgentRun::current().part<AppDataRequests>(RunPart::applicationData)};
}

}  // namespace korvane
