// getPolicy, queryDriver and retranslate.
#include "cloud/agent_status.h"
#include "cloud/local_methods.h"
#include "config/settings_file.h"
#include "config/settings_table.h"
#include "driver/driver.h"
#include "driver/driver_values.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

// What the driver itself says; its request takes its time-out at most, and a stop cuts it short.
AppliedPolicy putAnswer(JsonTree& tree, Driver& driver) {
  AppliedPolicy applied;
  const DriverResult asked = driver.queryPolicy(applied);
  putFlag(tree, "answered", asked.ok());
  if (!asked.ok()) {
    putMember(tree, "error", asked.text.toUtf8());
    return applied;
  }
  JsonTree policy;
  putMember(policy, "name", applied.name.toUtf8());
  putMember(policy, "version", applied.version.toUtf8());
  putMember(policy, "id", applied.id.toUtf8());
  tree.push_back({"policy", std::move(policy)});
  putFlag(tree, "builtIn", applied.builtIn != 0);
  return applied;
}

// What the registry says of it; a built-in policy that the driver has is in force whatever
// is recorded.
void putRecorded(JsonTree& tree, Driver& driver, const AppliedPolicy& applied) {
  PolicySetting setting;
  JsonTree recorded;
  const bool readable = driver.recordedSetting(setting);
  putFlag(recorded, "readable", readable);
  putMember(recorded, "filterFile", setting.filterFile.toUtf8());
  putFlag(recorded, "builtIn", readable && (setting.builtIn || applied.builtIn != 0));
  putTime(recorded, "appliedAt", static_cast<int64_t>(driver.applicationDate()));
  STRING logFile;
  // Empty when it cannot be read.
  ignoreResult(driver.readValue(kLogFileValue, logFile));
  putMember(recorded, "logFile", logFile.toUtf8());
  tree.push_back({"recorded", std::move(recorded)});
}

JsonTree driverTree(Driver& driver) {
  JsonTree tree;
  const AppliedPolicy applied = putAnswer(tree, driver);
  putRecorded(tree, driver, applied);
  return tree;
}

}  // namespace

void requestRetranslation(SettingsFile& settings, RPCResponse& response) {
  STRING refused;
  const PropertyList request = {{rowOf(Key::autoRetransNow).name, "true"}};
  if (settings.changeAll(request, refused) != SettingsFile::ChangeAll::done)
    throw RPCError(kRpcFileOpenError, "agent.ini cannot be written or is locked");
  putFlag(response.result, "requested", true);
}

void addPolicyMethods(RPCServer& server, const LocalParts& parts) {
  using Access = RPCServer::Access;
  server.add("getPolicy", Access::everyone, [&parts](const RPCRequest&, RPCResponse& response) {
    response.result = policyTree(parts.policy);
  });
  server.add("queryDriver", Access::everyone, [&parts](const RPCRequest&, RPCResponse& response) {
    response.result = driverTree(parts.driver);
  });
  server.add("retranslate", Access::administrators,
             [&parts](const RPCRequest&, RPCResponse& response) {
               requestRetranslation(parts.settings, response);
             });
}

}  // namespace korvane
