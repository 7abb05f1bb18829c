#include "comm/agent_description.h"

#include <string>

#include "config/machine_facts.h"
#include "config/policy_settings.h"
#include "config/prevention.h"
#include "config/server_settings.h"
#include "config/update_settings.h"
#include "platform/paths.h"
#include "platform/system_info.h"

namespace korvane {
namespace {

constexpr int kBuiltInPolicy = PolicySettings::kBuiltInPolicyState;
constexpr uint64_t kMaxPolicyBytes = 256 * 1024 * 1024;

}  // namespace

STRING AgentDescription::charset() const {
  return _parts.settings.server.getCharset();
}

PropertyList AgentDescription::attributes() const {
  return _parts.settings.machine.getAttributes();
}

void AgentDescription::addTo(HttpsMessageGenerator& registration) const {
  registration.addProperties(attributes());
  registration.addProperties(_parts.settings.machine.getConfiguration());
  HidsInterface* ids = _parts.idsComponent();
  if (!ids || !ids->present()) return;
  PropertyList pairs = ids->settings();
  for (const Property& rule : ids->logRules()) {
    pairs.emplace_back("idslogrules", rule.first + "=" + rule.second);
  }
  registration.addProperties(pairs);
}

void AgentDescription::addIdsPolicy(HttpsMessageGenerator& registration) const {
  const std::string path = _parts.settings.policy.getIDSPlusFileName().toUtf8();
  std::string bytes;
  if (path.empty() || platform::readWholeFile(_parts.files, path, kMaxPolicyBytes, bytes) != 0)
    return;
  registration.addBinary(bytes.data(), bytes.size());
}

PropertyList AgentDescription::policy() const {
  const PolicySettings& settings = _parts.settings.policy;
  const STRING applied = settings.getPolicyID();
  const STRING path = settings.getPlusDBPath();
  // Without an applied policy the driver has nothing but its built-in one; one that waits for its
  // reboot has the recorded policy, and cannot say so yet.
  const bool awaited = preventionAwaitsReboot(settings) && !path.empty();
  const bool builtIn = (applied.empty() && !awaited) ||
                       settings.getPolicyStateCode() == kBuiltInPolicy ||
                       settings.getPolicyErrorCode() == kBuiltInPolicy;
  return {{"rid.applied", applied},
          {"rid.group", _parts.settings.server.getInitialGroup()},
          {"policy.name", settings.getPlusVersion()},
          {"policy.path", builtIn ? STRING("builtin") : path}};
}

PropertyList AgentDescription::policyAndMachine() const {
  PropertyList pairs = policy();
  pairs.emplace_back("agent.timezone", _parts.systemInfo.timeZone());
  pairs.emplace_back("agent.domain.name", _parts.systemInfo.domainName());
  pairs.emplace_back("agent.osversion", _parts.settings.machine.getOS());
  return pairs;
}

AgentDescription::Outcome AgentDescription::policyError() const {
  return {_parts.settings.policy.getPolicyErrorCode(), _parts.settings.policy.getPolicyErrorStr()};
}

AgentDescription::Outcome AgentDescription::policyState() const {
  return {_parts.settings.policy.getPolicyStateCode(), _parts.settings.policy.getPolicyStateStr()};
}

STRING AgentDescription::applicationRequest() const {
  return _parts.settings.updates.getAppDataRequestID();
}

}  // namespace korvane
