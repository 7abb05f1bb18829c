// agentctl config diff: where the settings differ from the defaults, fallback.ini or another file.
#include <iostream>
#include <nlohmann/json.hpp>
#include <set>

#include "agentctl/commands.h"
#include "agentctl/json.h"
#include "agentctl/output.h"
#include "agentctl/settings_view.h"
#include "config/ini_files.h"

namespace korvane::agentctl {
namespace {

struct DiffOptions {
  std::string file;
  bool fallback = false;
  bool show = false;
};

struct Difference {
  std::string section;
  std::string key;
  const STRING* there;  // null: the key is not there
  const STRING* here;
};

SettingsView otherSide(Context& context, const DiffOptions& options) {
  if (!options.fallback && options.file.empty()) return SettingsView::defaults();
  const IniFiles files = context.iniFiles();
  return SettingsView::ofFile(files, options.fallback ? files.fallbackIni() : options.file);
}

void compare(const std::vector<SettingsView::Entry>& entries, const SettingsView& there,
             const SettingsView& here, std::set<std::string>& seen, std::vector<Difference>& out) {
  for (const SettingsView::Entry& entry : entries) {
    const STRING* left = there.find(entry.key);
    const STRING* right = here.find(entry.key);
    const bool same = left && right && *left == *right;
    if (seen.insert(entry.key).second && !same)
      out.push_back({entry.section, entry.key, left, right});
  }
}

void print(const std::vector<Difference>& differences, bool show) {
  std::string section;
  for (const Difference& difference : differences) {
    if (difference.section != section) std::cout << " [" << difference.section << "]\n";
    section = difference.section;
    if (difference.there)
      std::cout << "-" << difference.key << "="
                << SettingsView::shown(difference.key, *difference.there, show) << "\n";
    if (difference.here)
      std::cout << "+" << difference.key << "="
                << SettingsView::shown(difference.key, *difference.here, show) << "\n";
  }
}

Json orNull(const Difference& of, const STRING* value, bool show) {
  return value ? Json(SettingsView::shown(of.key, *value, show)) : Json();
}

ExitStatus diff(Context& context, const DiffOptions& options) {
  const SettingsView here = SettingsView::ofInstallation(context.iniFiles());
  const SettingsView there = otherSide(context, options);
  std::set<std::string> seen;
  std::vector<Difference> differences;
  compare(here.entries(), there, here, seen, differences);
  compare(there.entries(), there, here, seen, differences);
  if (context.options.json) {
    Json list = Json::array();
    for (const Difference& difference : differences)
      list.push_back({{"section", difference.section},
                      {"key", difference.key},
                      {"there", orNull(difference, difference.there, options.show)},
                      {"here", orNull(difference, difference.here, options.show)}});
    std::cout << text(
        {{"there", there.source()}, {"here", here.source()}, {"differences", std::move(list)}});
    return ExitStatus::ok;
  }
  if (!here.fault().empty()) note(here.fault() + "; these are the values of " + here.source());
  if (!differences.empty())
    std::cout << "--- " << there.source() << "\n+++ " << here.source() << "\n";
  print(differences, options.show);
  return ExitStatus::ok;
}

}  // namespace

void addConfigDiff(CLI::App& config, Context& context, Action& chosen) {
  CLI::App* command =
      config.add_subcommand("diff", "Shows where the settings differ from the built-in defaults");
  const auto options = std::make_shared<DiffOptions>();
  CLI::Option* file =
      command->add_option("FILE", options->file, "Compares with this ini file instead");
  command->add_flag("--fallback", options->fallback, "Compares with fallback.ini instead")
      ->excludes(file);
  command->add_flag("--show", options->show, kShowHelp);
  command->callback([options, &context, &chosen] {
    chosen = [options, &context] { return diff(context, *options); };
  });
}

}  // namespace korvane::agentctl
