// getSettings, setSettings and setTrace.
#include <vector>

#include "cloud/agent_status.h"
#include "cloud/local_methods.h"
#include "cloud/parameters.h"
#include "cloud/settings_change.h"
#include "config/log_settings.h"
#include "config/masking.h"
#include "config/setting_check.h"
#include "config/settings_file.h"
#include "config/settings_table.h"

namespace korvane {
namespace {

// A list of texts, or one text.
std::vector<std::string> keysOf(const JsonTree& tree) {
  if (tree.empty()) return {tree.data()};
  std::vector<std::string> keys;
  for (const auto& [name, child] : tree) {
    if (!name.empty() || !child.empty()) refuseParameter("keys", "must be a list of texts");
    keys.push_back(child.data());
  }
  return keys;
}

void putSetting(JsonTree& tree, const std::string& key, const STRING& value) {
  putMember(tree, key, maskedSetting(key, value.toUtf8()));
}

JsonTree settingsTree(const JsonTree& params, const SettingsFile& settings) {
  JsonTree tree;
  const JsonTree* keys = givenParameter(params, "keys");
  if (!keys) {
    for (const auto& [key, value] : settings.allValues()) putSetting(tree, key.toUtf8(), value);
    return tree;
  }
  for (const std::string& key : keysOf(*keys)) {
    if (!settings.hasValue(key)) refuseParameter(key, "is not a setting");
    putSetting(tree, key, settings.getValue(key));
  }
  return tree;
}

int changeTo(const RPCRequest& request, SettingsFile& settings) {
  return changeSettings(settings,
                        settingsFrom(request.params, settings, SettingsSource::localChannel));
}

void setTrace(const RPCRequest& request, SettingsFile& settings) {
  const STRING on = neededText(request, "on");
  const char* key = rowOf(Key::agentLogTrace).name;
  if (const std::string fault = settingFault(key, on); on.empty() || !fault.empty())
    refuseParameter(
        "on", "\"" + on.toUtf8() + "\" " + (fault.empty() ? "is neither true nor false" : fault));
  checkIncoming(settings.incoming(), SettingsSource::localChannel, key, on.toUtf8());
  changeSettings(settings, {{key, on}});
}

}  // namespace

void addSettingsMethods(RPCServer& server, const LocalParts& parts) {
  using Access = RPCServer::Access;
  server.add(
      "getSettings", Access::everyone, [&parts](const RPCRequest& request, RPCResponse& response) {
        response.result.push_back({"settings", settingsTree(request.params, parts.settings)});
      });
  server.add("setSettings", Access::administrators,
             [&parts](const RPCRequest& request, RPCResponse& response) {
               putMember(response.result, "changed", changeTo(request, parts.settings));
             });
  server.add("setTrace", Access::administrators,
             [&parts](const RPCRequest& request, RPCResponse& response) {
               setTrace(request, parts.settings);
               putFlag(response.result, "trace", parts.logs.logTraceMessages());
             });
}

}  // namespace korvane
