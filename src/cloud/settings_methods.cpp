// getSettings, setSettings and setTrace.
#include <vector>

#include "cloud/agent_status.h"
#include "cloud/local_methods.h"
#include "config/agent_config.h"
#include "config/masking.h"
#include "config/setting_check.h"
#include "config/settings_table.h"

namespace korvane {
namespace {

[[noreturn]] void refuse(const std::string& key, const std::string& fault) {
  throw RPCError(kRpcInvalidParams, key + ": " + fault);
}

// A list of texts, or one text.
std::vector<std::string> textsOf(const JsonTree& tree) {
  if (tree.empty()) return {tree.data()};
  std::vector<std::string> texts;
  for (const auto& [name, child] : tree) texts.push_back(child.data());
  return texts;
}

void putSetting(JsonTree& tree, const std::string& key, const STRING& value) {
  putMember(tree, key, maskedSetting(key, value.toUtf8()));
}

JsonTree settingsTree(const JsonTree& params) {
  const AgentConfig& config = *AgentConfig::getInstance();
  JsonTree tree;
  const auto keys = params.get_child_optional("keys");
  if (!keys) {
    for (const auto& [key, value] : config.allValues()) putSetting(tree, key.toUtf8(), value);
    return tree;
  }
  for (const std::string& key : textsOf(*keys)) {
    if (!config.hasValue(key)) refuse(key, "is no setting");
    putSetting(tree, key, config.getValue(key));
  }
  return tree;
}

PropertyList changesOf(const JsonTree& params) {
  const AgentConfig& config = *AgentConfig::getInstance();
  PropertyList changes;
  for (const auto& [name, child] : params.get_child("settings")) {
    const STRING key = name;
    const STRING value = child.data();
    if (!config.hasValue(key)) refuse(name, "is no setting");
    if (!child.empty()) refuse(name, "the value is neither text, number, true nor false");
    if (const std::string fault = settingFault(key, value); !fault.empty())
      refuse(name, "\"" + maskedSetting(name, child.data()) + "\" " + fault);
    changes.emplace_back(key, value);
  }
  if (changes.empty()) refuse("settings", "there is none");
  return changes;
}

void apply(const PropertyList& changes) {
  STRING refusedKey;
  switch (AgentConfig::getInstance()->changeAll(changes, refusedKey)) {
    case AgentConfig::ChangeAll::refused:
      refuse(refusedKey.toUtf8(), "the value is refused");
    case AgentConfig::ChangeAll::locked:
      throw RPCError(kRpcFileOpenError, "agent.ini: another program holds the lock file");
    case AgentConfig::ChangeAll::notWritten:
      throw RPCError(kRpcFileCopyError, "agent.ini cannot be written");
    default:
      break;
  }
}

int countChanged(const PropertyList& before) {
  int changed = 0;
  for (const auto& [key, value] : before)
    if (AgentConfig::getInstance()->getValue(key) != value) ++changed;
  return changed;
}

void setSettings(const RPCRequest& request, RPCResponse& response) {
  const PropertyList changes = changesOf(request.params);
  const PropertyList before = AgentConfig::getInstance()->allValues();
  apply(changes);
  putMember(response.result, "changed", countChanged(before));
}

void setTrace(const RPCRequest& request, RPCResponse& response) {
  const STRING on = request.params.get<std::string>("on");
  const char* key = rowOf(Key::agentLogTrace).name;
  if (const std::string fault = settingFault(key, on); on.empty() || !fault.empty())
    refuse("on", "\"" + on.toUtf8() + "\" " + (fault.empty() ? "says nothing" : fault));
  apply({{key, on}});
  putFlag(response.result, "trace", AgentConfig::getInstance()->logTraceMessages());
}

}  // namespace

void addSettingsMethods(RPCServer& server) {
  using Access = RPCServer::Access;
  server.add("getSettings", Access::everyone, [](const RPCRequest& request, RPCResponse& response) {
    response.result.push_back({"settings", settingsTree(request.params)});
  });
  server.add("setSettings", Access::administrators, setSettings);
  server.add("setTrace", Access::administrators, setTrace);
}

}  // namespace korvane
