// getPolicy, queryDriver and retranslate.
#include "cloud/agent_status.h"
#include "cloud/local_methods.h"
#include "config/agent_config.h"
#include "config/settings_table.h"
#include "driver/driver_config.h"

namespace korvane {
namespace {

// What the driver itself says; its request takes its time-out at most, and a stop cuts it short.
void putAnswer(JsonTree& tree) {
  STRING name, version, identifier, message;
  const bool answered = DriverConfig::queryPolicy(name, version, identifier, message);
  putFlag(tree, "answered", answered);
  if (!answered) {
    putMember(tree, "error", message.toUtf8());
    return;
  }
  JsonTree policy;
  putMember(policy, "name", name.toUtf8());
  putMember(policy, "version", version.toUtf8());
  putMember(policy, "id", identifier.toUtf8());
  tree.push_back({"policy", std::move(policy)});
  putFlag(tree, "builtIn", DriverConfig::usingBuiltIn());
}

// What the registry says of it.
void putRecorded(JsonTree& tree) {
  DriverConfig::PolicySetting setting;
  JsonTree recorded;
  putFlag(recorded, "readable", DriverConfig::policySetting(setting));
  putMember(recorded, "filterFile", setting.filterFile.toUtf8());
  putFlag(recorded, "builtIn", setting.builtIn);
  putTime(recorded, "appliedAt", static_cast<int64_t>(DriverConfig::getPolApplicationDate()));
  putMember(recorded, "logFile", DriverConfig::getDriverLog().toUtf8());
  tree.push_back({"recorded", std::move(recorded)});
}

void queryDriver(const RPCRequest&, RPCResponse& response) {
  putAnswer(response.result);
  putRecorded(response.result);
}

}  // namespace

void requestRetranslation(const RPCRequest&, RPCResponse& response) {
  STRING refused;
  const PropertyList wish = {{rowOf(Key::autoRetransNow).name, "true"}};
  if (AgentConfig::getInstance()->changeAll(wish, refused) != AgentConfig::ChangeAll::done)
    throw RPCError(kRpcFileOpenError, "agent.ini cannot be written or is locked");
  putFlag(response.result, "requested", true);
}

void addPolicyMethods(RPCServer& server) {
  using Access = RPCServer::Access;
  server.add("getPolicy", Access::everyone,
             [](const RPCRequest&, RPCResponse& response) { response.result = policyTree(); });
  server.add("queryDriver", Access::everyone, queryDriver);
  server.add("retranslate", Access::administrators, requestRetranslation);
}

}  // namespace korvane
