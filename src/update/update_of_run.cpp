// Where this room asks for the current run, and nowhere else.
#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/settings.h"
#include "discovery/app_data_requests.h"
#include "ids/log_rules.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "update/update_parts.h"
#include "util/agent_run.h"

namespace korvane {
namespace {

struct KeptLogRules {
  LogRules rules{platform::current().files,
                 platform::joinPath(platform::current().files, {installDirectory(), "log.rules"})};
};

}  // namespace

ContentParts contentPartsOfRun() {
  const Settings settings = settingsOf(*AgentConfig::getInstance());
  return {platform::current().files, settings.updates, settings.file,
          AgentRun::current().part<Win32Mutex>(RunPart::content)};
}

LogRules& logRulesOfRun() {
  return AgentRun::current().part<KeptLogRules>(RunPart::logRules).rules;
}

UpdateParts updatePartsOfRun() {
  return {policyPartsOfRun(),
          contentPartsOfRun(),
          platform::current().sockets,
          settingsOf(*AgentConfig::getInstance()),
          AgentRun::current().part<AppDataRequests>(RunPart::applicationData),
          &AgentConfig::getHIDSInterface,
          logRulesOfRun()};
}

}  // namespace korvane
