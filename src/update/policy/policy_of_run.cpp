// Where this room asks for the current run, and nowhere else.
#include "agent/thread/stop_token.h"
#include "comm/server_connection.h"
#include "config/agent_config.h"
#include "config/settings.h"
#include "driver/driver.h"
#include "platform/platform.h"
#include "update/policy/policy_parts.h"
#include "util/agent_run.h"

namespace korvane {

PolicyParts policyPartsOfRun() {
  platform::Platform& system = platform::current();
  const Settings settings = settingsOf(*AgentConfig::getInstance());
  return {{{system.files, currentDriver(), settings.policy, settings.file},
           system.clock,
           system.processes,
           system.rights,
           shutdownToken()},
          system.registry,
          system.systemInfo,
          currentConnection(),
          AgentRun::current().part<PolicyShared>(RunPart::policy)};
}

}  // namespace korvane
