// Where this room asks for the current run, and nowhere else.
#include "config/agent_config.h"
#include "config/settings.h"
#include "discovery/app_data_requests.h"
#include "platform/platform.h"
#include "update/update_parts.h"
#include "util/agent_run.h"

namespace korvane {

ContentParts contentPartsOfRun() {
  const Settings settings = settingsOf(*AgentConfig::getInstance());
  return {platform::current().files, settings.updates, settings.file,
          AgentRun::current().part<Win32Mutex>(RunPart::content)};
}

UpdateParts updatePartsOfRun() {
  return {policyPartsOfRun(),
          contentPartsOfRun(),
          platform::current().sockets,
          settingsOf(*AgentConfig::getInstance()),
          AgentRun::current().part<AppDataRequests>(RunPart::applicationData),
          &AgentConfig::getHIDSInterface};
}

}  // namespace korvane
