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

struct GetOptions {
  std::vector<std::string> keys;
  bool show = false;
};

std::string valueOf(const SettingsView& settings, const std::string& key, bool show) {
  const STRING* value = settings.find(key);
  if (value) return SettingsView::shown(key, *value, show);
  const std::string near = nearest(key, keyNames());
  throw Failure(
      ExitStatus::failed, "unknown key " + key + " in " + settings.source(),
      near.empty() ? "`agentctl config get` lists all of them." : "Did you mean " + near + "?");
}

void printAll(const SettingsView& settings, bool show) {
  std::string section;
  for (const SettingsView::Entry& entry : settings.entries()) {
    if (entry.section != section) std::cout << "[" << entry.section << "]\n";
    section = entry.section;
    std::cout << entry.key << "=" << SettingsView::shown(entry.key, entry.value, show) << "\n";
  }
}

Json settingsJson(const SettingsView& settings, const GetOptions& options) {
  Json values = Json::object();
  for (const std::string& key : options.keys) values[key] = valueOf(settings, key, options.show);
  if (options.keys.empty())
    for (const SettingsView::Entry& entry : settings.entries())
      values[entry.key] = SettingsView::shown(entry.key, entry.value, options.show);
  return {
      {"source", settings.source()}, {"fault", settings.fault()}, {"settings", std::move(values)}};
}

ExitStatus get(Context& context, const GetOptions& options) {
  const SettingsView settings = SettingsView::ofInstallation(context.iniFiles());
  if (context.options.json) {
    std::cout << text(settingsJson(settings, options));
    return ExitStatus::ok;
  }
  if (!settings.fault().empty())
    note(settings.fault() + "; these are the values of " + settings.source());
  if (options.keys.empty()) printAll(settings, options.show);
  for (const std::string& key : options.keys) {
    const std::string value = valueOf(settings, key, options.show);
    std::cout << (options.keys.size() > 1 ? key + "=" : "") << value << "\n";
  }
  return ExitStatus::ok;
}

}  // namespace

void addConfigGet(CLI::App& config, Context& context, Action& chosen) {
  CLI::App* command = config.add_subcommand("get", "Prints settings as agent.ini has them");
  const auto options = std::make_shared<GetOptions>();
  command->add_option("KEY", options->keys, "The keys; all of them when none is given");
  command->add_flag("--show", options->show, kShowHelp);
  command->callback([options, &context, &chosen] {
    chosen = [options, &context] { return get(context, *options); };
  });
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
