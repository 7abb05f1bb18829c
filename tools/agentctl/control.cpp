// agentctl retranslate, trace and version.
#include <iostream>
#include <nlohmann/json.hpp>

#include "agentctl/commands.h"
#include "agentctl/facts.h"
#include "agentctl/failure.h"
#include "agentctl/output.h"
#include "agentctl/settings_change.h"
#include "config/properties_file.h"
#include "util/ignore_result.h"

namespace korvane::agentctl {
namespace {

ExitStatus retranslate(Context& context) {
  try {
    context.ask("retranslate");
  } catch (const Failure& failure) {
    if (failure.status() != ExitStatus::notRunning) throw;
    throw Failure(
        failure.status(), failure.what(),
        failure.next() + " `agentctl config set autoretrans.now=true` does it at the next start.");
  }
  if (context.options.json)
    std::cout << text({{"requested", true}});
  else
    std::cout << "The agent is retranslating its policy; `agentctl policy` shows the outcome.\n";
  return ExitStatus::ok;
}

ExitStatus trace(Context& context, bool on) {
  JsonTree params;
  params.put("on", on ? "true" : "false");
  const bool running = context.askIfRunning("setTrace", params).has_value();
  if (!running) {
    SettingsChange change(context, false);
    change.add(std::string("agentlog.log.trace.messages=") + (on ? "true" : "false"));
    change.write();
  }
  if (context.options.json)
    std::cout << text({{"trace", on}, {"running", running}});
  else
    std::cout << "Trace lines are " << (on ? "on" : "off")
              << (running
                      ? ".\n"
                      : "; the agent is not running, the setting applies from its next start.\n");
  return ExitStatus::ok;
}

ExitStatus version(Context& context) {
  PropertyList installed;
  std::string missing;
  try {
    // A file that is not there names no version.
    ignoreResult(readPropertiesFile(context.system().files,
                                    context.installed("kav-version.properties"), installed));
  } catch (const Failure& failure) {
    missing = failure.what();
  }
  const std::optional<JsonTree> answer = context.askIfRunning("getAgentVersion");
  const STRING build = propertyValue(installed, "build.number");
  const STRING number = propertyValue(installed, "version");
  const Json facts = {{"agentctl", KORVANE_VERSION},
                      {"installed", (build.empty() ? number : number + "." + build).toUtf8()},
                      {"running", answer ? Json(answer->get("version", std::string())) : Json()}};
  if (context.options.json) {
    std::cout << text(facts);
    return ExitStatus::ok;
  }
  const std::string found = textAt(facts, "installed");
  std::cout << columns({{"agentctl", KORVANE_VERSION},
                        {"installed", !found.empty()    ? found
                                      : missing.empty() ? "no version file"
                                                        : missing},
                        {"running", answer ? textAt(facts, "running") : "no agent"}});
  return ExitStatus::ok;
}

}  // namespace

void addRetranslate(CLI::App& app, Context& context, Action& chosen) {
  app.add_subcommand("retranslate", "Makes the running agent retranslate its policy now")
      ->callback([&context, &chosen] { chosen = [&context] { return retranslate(context); }; });
}

void addTrace(CLI::App& app, Context& context, Action& chosen) {
  CLI::App* command =
      app.add_subcommand("trace", "Switches trace lines in the agent's own log on or off");
  const auto state = std::make_shared<std::string>();
  command->add_option("STATE", *state, "on or off")
      ->required()
      ->check(CLI::IsMember({"on", "off"}));
  command->callback([state, &context, &chosen] {
    chosen = [state, &context] { return trace(context, *state == "on"); };
  });
}

void addVersion(CLI::App& app, Context& context, Action& chosen) {
  app.add_subcommand("version",
                     "Shows the versions of agentctl, of the installation and of the running agent")
      ->callback([&context, &chosen] { chosen = [&context] { return version(context); }; });
}

}  // namespace korvane::agentctl
