#include "agentctl/command_line.h"

#include <algorithm>
#include <iostream>
#include <numeric>

#include "agentctl/failure.h"

namespace korvane::agentctl {
namespace {

constexpr size_t kNearEnough = 3;

std::string exitStatuses() {
  std::string text = "Exit status:\n";
  for (const ExitStatusRow& row : kExitStatuses)
    text += "  " + std::to_string(static_cast<int>(row.status)) + "  " + row.meaning + "\n";
  return text;
}

void addGlobalOptions(CLI::App& app, GlobalOptions& options) {
  app.add_option("--install-root", options.installRoot,
                 "Where the agent is installed (KORVANE_INSTALL_ROOT; the registry's InstallRoot)");
  app.add_option("--registry", options.registry, "Linux: the registry file (KORVANE_REGISTRY)");
  app.add_option("--run-dir", options.runDirectory,
                 "Linux: where the agent's sockets are (KORVANE_RUN_DIR)");
  app.add_flag("--json", options.json, "Prints JSON");
}

// How many letters have to be changed, added or left out.
size_t distance(const std::string& from, const std::string& to) {
  std::vector<size_t> row(to.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 0; i < from.size(); ++i) {
    size_t diagonal = std::exchange(row[0], i + 1);
    for (size_t j = 0; j < to.size(); ++j) {
      const size_t changed = diagonal + (from[i] == to[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

// The commands that the unknown word may stand for: the nearest first, all when none is near.
std::string suggestion(const CLI::App& app, const std::string& word) {
  std::vector<std::pair<size_t, std::string>> names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
    names.emplace_back(distance(word, command->get_name()), command->get_name());
  std::sort(names.begin(), names.end());
  if (!names.empty() && names.front().first < kNearEnough)
    return "Did you mean `" + names.front().second + "`?";
  std::string all = "There is:";
  for (const auto& [unused, name] : names) all += " " + name;
  return all + ".";
}

// The command that was reached before the word which is none.
const CLI::App& reached(const CLI::App& app) {
  const CLI::App* at = &app;
  while (!at->get_subcommands().empty()) at = at->get_subcommands().back();
  return *at;
}

std::string advice(const CLI::App& app, const std::vector<std::string>& left) {
  const CLI::App& at = reached(app);
  const bool takesCommands = !at.get_subcommands([](const CLI::App*) { return true; }).empty();
  if (!left.empty() && takesCommands && !left.front().starts_with('-'))
    return suggestion(at, left.front());
  std::string path = at.get_name();
  for (const CLI::App* above = at.get_parent(); above; above = above->get_parent())
    path = above->get_name() + " " + path;
  return "`" + path + " --help` lists what it takes.";
}

int tell(const Failure& failure) {
  std::cout << std::flush;
  std::cerr << "agentctl: " << failure.what() << "\n";
  if (!failure.next().empty()) std::cerr << "  " << failure.next() << "\n";
  return static_cast<int>(failure.status());
}

int complain(const CLI::App& app, const CLI::ParseError& error) {
  std::string what = error.what();
  const std::vector<std::string> left = app.remaining(true);
  if (!left.empty())
    what = (left.front().starts_with('-') ? "unknown option " : "unknown command or argument ") +
           left.front();
  return tell(Failure(ExitStatus::usage, what, advice(app, left)));
}

int run(const Action& chosen) {
  try {
    const ExitStatus status = chosen();
    std::cout << std::flush;
    if (!std::cout) throw Failure(ExitStatus::failed, "the output could not be written", {});
    return static_cast<int>(status);
  } catch (const Failure& failure) {
    return tell(failure);
  } catch (const std::exception& error) {
    return tell(Failure(ExitStatus::failed,
                        std::string("it failed in a way that is not foreseen: ") + error.what(),
                        "`agentctl diagnose` collects what its makers need to look into it."));
  }
}

}  // namespace

std::unique_ptr<CLI::App> makeCommandLine(Context& context, Action& chosen) {
  auto app = std::make_unique<CLI::App>(
      "Asks the Korvane agent how it is, sets it up and looks into it", "agentctl");
  app->require_subcommand(1);
  app->fallthrough();
  app->footer(exitStatuses());
  app->set_version_flag("--version", "agentctl " KORVANE_VERSION);
  addGlobalOptions(*app, context.options);
  addCall(*app, context, chosen);
  return app;
}

int runCommandLine(const std::vector<std::string>& arguments) {
  Context context;
  Action chosen;
  const auto app = makeCommandLine(context, chosen);
  try {
    app->parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::Success& asked) {
    return app->exit(asked);
  } catch (const CLI::ParseError& error) {
    return complain(*app, error);
  }
  return run(chosen);
}

}  // namespace korvane::agentctl
