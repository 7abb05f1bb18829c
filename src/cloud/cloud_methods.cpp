#include "cloud/cloud_methods.h"

#include <algorithm>
#include <iterator>

#include "cloud/agent_status.h"
#include "cloud/application_policies.h"
#include "cloud/cloud_errors.h"
#include "cloud/connector_presence.h"
#include "cloud/local_methods.h"
#include "cloud/parameters.h"
#include "cloud/settings_change.h"
#include "config/machine_facts.h"
#include "config/policy_settings.h"
#include "config/prevention.h"
#include "config/server_settings.h"
#include "config/service_type.h"
#include "config/setting_check.h"
#include "logs/forwarding_counters.h"
#include "logs/forwarding_switch.h"
#include "update/policy/builtin_policy_switch.h"
#include "util/base64.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr size_t kMaxTextBytes = 1024;

std::string shortTextOf(const RPCRequest& request, const char* parameter) {
  const std::string& text = neededText(request, parameter);
  if (text.empty() || text.size() > kMaxTextBytes)
    refuseParameter(parameter, std::to_string(text.size()) + " bytes, there must be 1 to " +
                                   std::to_string(kMaxTextBytes));
  return text;
}

std::string bytesOf(const RPCRequest& request, const char* parameter) {
  const std::string& text = neededText(request, parameter);
  std::string bytes;
  if (text.empty()) throw RPCError(kRpcEmptyBuffer, std::string(parameter) + " is empty");
  if (!decodeBase64(text, bytes)) refuseParameter(parameter, "is not valid base64");
  if (bytes.size() <= kMaxPolicyBytes) return bytes;
  refuseParameter(parameter, std::to_string(bytes.size()) + " bytes, there may be " +
                                 std::to_string(kMaxPolicyBytes));
}

void checkChangeable(const PropertyList& settings) {
  for (const auto& [key, value] : settings)
    if (comesWithPolicy(key))
      refuseParameter(key.toUtf8(), "belongs to the policy and cannot be set");
}

}  // namespace

void CloudMethods::addTo(RPCServer& server) {
  const std::pair<const char*, Command> commands[] = {
      {"policyBuffer", &CloudMethods::policyBuffer},
      {"policy", &CloudMethods::policy},
      {"configuration", &CloudMethods::configuration},
      {"applicationPolicy.set", &CloudMethods::setApplication},
      {"applicationPolicy.remove", &CloudMethods::removeApplication},
      {"applicationPolicy.list", &CloudMethods::listApplications},
      {"getState", &CloudMethods::getState},
      {"retranslate", &CloudMethods::retranslate},
  };
  for (const auto& [name, command] : commands)
    server.add(name, RPCServer::Access::administrators,
               [this, run = command](const RPCRequest& request, RPCResponse& response) {
                 _parts.connector.noteAsked();
                 (this->*run)(request, response);
               });
}

// The driver goes back with the setting when the change fails.
int CloudMethods::change(const PropertyList& settings) {
  const char* const key = "use.builtin.policy";
  const PropertyList former = {
      {key, STRING::fromBool(_parts.policies.settings.useBuiltInPolicy())}};
  const bool requested = findProperty(settings, key) && preventionInForce(_parts.policies.settings);
  if (requested)
    if (const STRING problem = applyBuiltInSetting(_parts.policies.driver, settings);
        !problem.empty())
      throw RPCError(kCloudPolicyRefused, key + (": " + problem.toUtf8()));
  try {
    return changeSettings(_parts.policies.settingsFile, settings);
  } catch (const RPCError&) {
    if (requested) applyBuiltInSetting(_parts.policies.driver, former);
    throw;
  }
}

void CloudMethods::workOnPolicy(const std::function<void(ApplicationPolicies&)>& work) {
  const PolicyTurn turn(_parts.policies.shared.turns, _parts.policies.stop);
  if (!turn.taken()) throw RPCError(kCloudStopping, "the agent stops");
  // Without a history the policies are worked on all the same; that has been traced.
  if (!_ready) ignoreResult(_processor.InitializePloicyHistory());
  _ready = true;
  ApplicationPolicies policies(_processor, _parts.policies.files, _parts.policies.settings);
  work(policies);
}

std::string_view CloudMethods::proven(const trust::Wanted& wanted, std::string_view bytes) {
  const PolicyParts& parts = _parts.policies;
  const trust::Verdict verdict = prove({parts.files, parts.clock, parts.settings}, wanted, bytes);
  if (verdict.accepted()) return verdict.content;
  throw RPCError(kCloudNotProven - verdict.refusal.code(), verdict.refusal.text);
}

void CloudMethods::policyBuffer(const RPCRequest& request, RPCResponse& response) {
  const std::string& value = neededText(request, "value");
  if (value != "true" && value != "false")
    refuseParameter("value", "\"true\" or \"false\" is expected");
  _parts.forwarding.setPolicyBuffer(value == "true");
  putMember(response.result, "policyBuffer", value);
}

void CloudMethods::policy(const RPCRequest& request, RPCResponse& response) {
  const PropertyList properties = {{"policy.name", shortTextOf(request, "name")},
                                   {"policy.path", shortTextOf(request, "path")}};
  const std::string source = bytesOf(request, "bytes");
  workOnPolicy([&](ApplicationPolicies& policies) {
    policies.installBase(proven({trust::Kind::policy}, source), properties);
  });
  response.result.push_back({"policy", policyTree(_parts.policies.settings)});
}

void CloudMethods::configuration(const RPCRequest& request, RPCResponse& response) {
  const PropertyList settings = settingsFrom(request.params, _parts.policies.settingsFile);
  checkChangeable(settings);
  const PolicyTurn turn(_parts.policies.shared.turns, _parts.policies.stop);
  if (!turn.taken()) throw RPCError(kCloudStopping, "the agent stops");
  putMember(response.result, "changed", change(settings));
}

void CloudMethods::setApplication(const RPCRequest& request, RPCResponse& response) {
  const std::string name = neededText(request, "name");
  const std::string archive = bytesOf(request, "bytes");
  bool changed = false;
  workOnPolicy([&](ApplicationPolicies& policies) {
    changed = policies.set(name, proven({trust::Kind::applicationPolicy, name}, archive));
  });
  putFlag(response.result, "changed", changed);
  response.result.push_back({"policy", policyTree(_parts.policies.settings)});
}

void CloudMethods::removeApplication(const RPCRequest& request, RPCResponse& response) {
  const std::string name = neededText(request, "name");
  workOnPolicy([&](ApplicationPolicies& policies) { policies.remove(name); });
  response.result.push_back({"policy", policyTree(_parts.policies.settings)});
}

void CloudMethods::listApplications(const RPCRequest&, RPCResponse& response) {
  JsonTree list;
  workOnPolicy([&list](ApplicationPolicies& policies) {
    for (const ApplicationPolicies::Application& each : policies.list()) {
      JsonTree tree;
      putMember(tree, "name", each.name);
      putFlag(tree, "stored", each.stored);
      putFlag(tree, "inForce", each.inForce);
      putMember(tree, "bytes", static_cast<int64_t>(each.bytes));
      putMember(tree, "sha256", each.sha256);
      putMember(tree, "problem", each.problem);
      list.push_back({"", std::move(tree)});
    }
  });
  response.result.push_back({"applications", std::move(list)});
}

void CloudMethods::getState(const RPCRequest&, RPCResponse& response) {
  JsonTree agent;
  putMember(agent, "version", _parts.machine.getKorvaneVersion().toUtf8());
  putMember(agent, "type", static_cast<int64_t>(serviceType()));
  response.result.push_back({"agent", std::move(agent)});
  putMember(response.result, "news", static_cast<int64_t>(_parts.policies.shared.news.number()));
  putFlag(response.result, "policyBuffer", _parts.forwarding.policyBuffer());
  putMember(response.result, "features", _parts.server.getFeatures().toUtf8());
  response.result.push_back({"policy", policyTree(_parts.policies.settings)});
  response.result.push_back({"counters", countersTree(_parts.counters, _parts.server)});
}

void CloudMethods::retranslate(const RPCRequest&, RPCResponse& response) {
  requestRetranslation(_parts.policies.settingsFile, response);
}

}  // namespace korvane
