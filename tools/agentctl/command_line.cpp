#include "agentctl/command_line.h"

#include <iostream>

#include "agentctl/failure.h"
#include "agentctl/nearest.h"
#include "agentctl/terminal_output.h"

namespace korvane::agentctl {
namespace {

std::string exitStatuses() {
  std::string text = "Exit status:\n";
  for (const ExitStatusRow& row : kExitStatuses)
    text += "  " + std::to_string(static_cast<int>(row.status)) + "  " + row.meaning + "\n";
  return text;
}

void addGlobalOptions(CLI::App& app, GlobalOptions& options) {
  // The last one counts, so that a script's own options can be overruled.
  app.option_defaults()->take_last();
  app.add_option("--install-root", options.installRoot,
                 "Where the agent is installed (KORVANE_INSTALL_ROOT; the registry's InstallRoot)");
  app.add_option("--registry", options.registry, "Linux: the registry file (KORVANE_REGISTRY)");
  app.add_option("--run-dir", options.runDirectory,
                 "Linux: where the agent's sockets are (KORVANE_RUN_DIR)");
  app.add_flag("--json", options.json, "Prints JSON");
  app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::Throw);
}

std::vector<std::string> commandsOf(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
    names.push_back(command->get_name());
  return names;
}

bool takesCommands(const CLI::App& app) {
  return !commandsOf(app).empty();
}

std::string all(const CLI::App& app) {
  std::string text = "There is:";
  for (const std::string& name : commandsOf(app)) text += " " + name;
  return text + ".";
}

// The command that was reached before the word which is none.
const CLI::App& reached(const CLI::App& app) {
  const CLI::App* at = &app;
  while (!at->get_subcommands().empty()) at = at->get_subcommands().back();
  return *at;
}

std::string advice(const CLI::App& app, const std::vector<std::string>& left) {
  const CLI::App& at = reached(app);
  if (!left.empty() && takesCommands(at) && !left.front().starts_with('-')) {
    const std::string near = nearest(left.front(), commandsOf(at));
    return near.empty() ? all(at) : "Did you mean `" + near + "`?";
  }
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
  const std::vector<std::string> left = app.remaining(true);
  if (!left.empty())
    return tell(Failure(
        ExitStatus::usage,
        (left.front().starts_with('-') ? "unknown option " : "unknown command or argument ") +
            left.front(),
        advice(app, left)));
  if (dynamic_cast<const CLI::RequiredError*>(&error) && takesCommands(reached(app)))
    return tell(Failure(ExitStatus::usage, "no command given", all(reached(app))));
  return tell(Failure(ExitStatus::usage, error.what(), advice(app, left)));
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
    return tell(Failure(ExitStatus::failed, std::string("unexpected failure: ") + error.what(),
                        "`agentctl diagnose` collects what the vendor needs to investigate."));
  }
}

}  // namespace

std::unique_ptr<CLI::App> makeCommandLine(Context& context, Action& chosen) {
  auto app =
      std::make_unique<CLI::App>("Queries, configures and diagnoses the Korvane agent", "agentctl");
  app->require_subcommand(1);
  app->fallthrough();
  app->footer(exitStatuses());
  app->set_version_flag("--version", "agentctl " KORVANE_VERSION);
  addGlobalOptions(*app, context.options);
  for (const auto add :
       {addStatus, addConfig, addPolicy, addLedger, addEvents, addTestConnection, addRetranslate,
        addTrace, addDiagnose, addCall, addVerify, addVersion, addCompletion})
    add(*app, context, chosen);
  return app;
}

int runCommandLine(const std::vector<std::string>& arguments) {
  const TerminalOutput answers(std::cout);
  const TerminalOutput complaints(std::cerr);
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
