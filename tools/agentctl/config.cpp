// agentctl config, and config get.
#include <iostream>
#include <nlohmann/json.hpp>

#include "agentctl/commands.h"
#include "agentctl/failure.h"
#include "agentctl/json.h"
#include "agentctl/nearest.h"
#include "agentctl/output.h"
#include "agentctl/settings_view.h"
#include "agentctl/value_check.h"

namespace korvane::agentctl {
namespace {

using Keys = std::vector<std::string>;

std::string valueOf(const SettingsView& settings, const std::string& key) {
  const STRING* value = settings.find(key);
  if (value) return value->toUtf8();
  const std::string near = nearest(key, keyNames());
  throw Failure(
      ExitStatus::failed, "unknown key " + key + " in " + settings.source(),
      near.empty() ? "`agentctl config get` lists all of them." : "Did you mean " + near + "?");
}

void printAll(const SettingsView& settings) {
  std::string section;
  for (const SettingsView::Entry& entry : settings.entries()) {
    if (entry.section != section) std::cout << "[" << entry.section << "]\n";
    section = entry.section;
    std::cout << entry.key << "=" << entry.value.toUtf8() << "\n";
  }
}

Json settingsJson(const SettingsView& settings, const Keys& keys) {
  Json values = Json::object();
  for (const std::string& key : keys) values[key] = valueOf(settings, key);
  if (keys.empty())
    for (const SettingsView::Entry& entry : settings.entries())
      values[entry.key] = entry.value.toUtf8();
  return {
      {"source", settings.source()}, {"fault", settings.fault()}, {"settings", std::move(values)}};
}

ExitStatus get(Context& context, const Keys& keys) {
  const SettingsView settings = SettingsView::ofInstallation(context.iniFiles());
  if (context.options.json) {
    std::cout << text(settingsJson(settings, keys));
    return ExitStatus::ok;
  }
  if (!settings.fault().empty())
    note(settings.fault() + "; these are the values of " + settings.source());
  if (keys.empty()) printAll(settings);
  for (const std::string& key : keys) {
    const std::string value = valueOf(settings, key);
    std::cout << (keys.size() > 1 ? key + "=" : "") << value << "\n";
  }
  return ExitStatus::ok;
}

}  // namespace

void addConfigGet(CLI::App& config, Context& context, Action& chosen) {
  CLI::App* command = config.add_subcommand("get", "Prints settings as agent.ini has them");
  const auto keys = std::make_shared<Keys>();
  command->add_option("KEY", *keys, "The keys; all of them when none is given");
  command->callback(
      [keys, &context, &chosen] { chosen = [keys, &context] { return get(context, *keys); }; });
}

void addConfig(CLI::App& app, Context& context, Action& chosen) {
  CLI::App* command =
      app.add_subcommand("config", "Reads, changes, checks and compares the settings");
  command->require_subcommand(1);
  addConfigGet(*command, context, chosen);
  addConfigSet(*command, context, chosen);
  addConfigCheck(*command, context, chosen);
  addConfigDiff(*command, context, chosen);
}

}  // namespace korvane::agentctl
