// agentctl config set: all of the values or none, under the lock file, with a right checksum.
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>

#include "agentctl/commands.h"
#include "agentctl/json.h"
#include "agentctl/settings_change.h"
#include "config/settings_table.h"

namespace korvane::agentctl {
namespace {

struct SetOptions {
  std::vector<std::string> pairs;
  bool force = false;
  bool show = false;
};

// An unknown key is one of another program.
Effect effectOf(const std::string& key) {
  const SettingRow* row = findRow(STRING(key));
  return row ? row->effect : Effect::otherPrograms;
}

std::string effectPhrase(Effect effect) {
  return (effect == Effect::otherPrograms ? "" : "takes effect ") + std::string(effectText(effect));
}

Json changeJson(const SettingsChange& change, bool show) {
  Json changed = Json::array();
  for (const SettingsChange::Value& value : change.values())
    if (value.before != value.after)
      changed.push_back({{"key", value.key},
                         {"before", SettingsView::shown(value.key, value.before, show)},
                         {"after", SettingsView::shown(value.key, value.after, show)},
                         {"takesEffect", effectText(effectOf(value.key))}});
  return {{"changed", std::move(changed)}};
}

ExitStatus set(Context& context, const SetOptions& options) {
  SettingsChange change(context, options.force);
  for (const std::string& pair : options.pairs) change.add(pair);
  change.write();
  if (context.options.json) {
    std::cout << text(changeJson(change, options.show));
    return ExitStatus::ok;
  }
  bool running = false;
  for (const SettingsChange::Value& value : change.values()) {
    const bool same = value.before == value.after;
    const Effect effect = effectOf(value.key);
    running |= !same && effect == Effect::atOnce;
    const auto shown = [&](const std::string& text) {
      return SettingsView::shown(value.key, text, options.show);
    };
    std::cout << value.key << ": " << shown(value.before)
              << (same ? " (unchanged)" : " -> " + shown(value.after) + ", " + effectPhrase(effect))
              << "\n";
  }
  if (running) std::cout << "A running agent picks it up within a second.\n";
  return ExitStatus::ok;
}

}  // namespace

void addConfigSet(CLI::App& config, Context& context, Action& chosen) {
  CLI::App* command =
      config.add_subcommand("set", "Changes settings in agent.ini: all of them or none");
  const auto options = std::make_shared<SetOptions>();
  command
      ->add_option("KEY=VALUE", options->pairs,
                   "What to change; an empty value resets a key that is not text to its default")
      ->required();
  command->add_flag("--force", options->force, "Also accepts unknown keys, into [Other]");
  command->add_flag("--show", options->show, kShowHelp);
  command->callback([options, &context, &chosen] {
    chosen = [options, &context] { return set(context, *options); };
  });
}

}  // namespace korvane::agentctl
