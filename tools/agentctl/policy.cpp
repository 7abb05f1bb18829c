// agentctl policy: the policy as the agent, the driver and the files have it.
#include <iostream>
#include <nlohmann/json.hpp>

#include "agentctl/commands.h"
#include "agentctl/facts.h"
#include "agentctl/output.h"

namespace korvane::agentctl {
namespace {

using Rows = std::vector<std::vector<std::string>>;

void addPolicy(const Json& facts, Rows& rows) {
  const Json& policy = facts["policy"];
  rows.push_back(
      {"In force", textAt(policy, "name").empty() ? "none known" : textAt(policy, "name")});
  rows.push_back({"Identifier", textAt(policy, "id")});
  if (policy.contains("effectiveAt")) rows.push_back({"Since", textAt(policy, "effectiveAt")});
  if (policy.contains("stateText"))
    rows.push_back({"State", textAt(policy, "stateCode") + ": " + textAt(policy, "stateText")});
  rows.push_back({"Report", textAt(policy, "errorCode") + ": " + textAt(policy, "errorText")});
  rows.push_back({"Built-in wanted", textAt(policy, "builtIn") == "true" ? "yes" : "no"});
  const std::string enforced = textAt(policy, "enforced");
  rows.push_back(
      {"Prevention", std::string(textAt(policy, "prevention") == "true" ? "enabled" : "disabled") +
                         (enforced.empty()     ? ""
                          : enforced == "true" ? ", in force"
                                               : ", not in force")});
  if (textAt(policy, "rebootRequired") == "true") rows.push_back({"", "a reboot is outstanding"});
  if (const std::string request = rebootRequest(policy); !request.empty())
    rows.push_back({"", request});
  rows.push_back({"Source file", textAt(policy, "plusFile")});
}

void addDriver(const Json& facts, Rows& rows) {
  const Json& driver = facts["driver"];
  if (textAt(driver, "answered") != "true") {
    rows.push_back({"Driver", "does not answer: " + textAt(driver, "error")});
    return;
  }
  rows.push_back(
      {"Driver", textAt(driver, "policy/name") + " " + textAt(driver, "policy/version") + " (" +
                     textAt(driver, "policy/id") + ")" +
                     (textAt(driver, "builtIn") == "true" ? ", its built-in policy" : "")});
}

void print(const Json& facts) {
  Rows rows;
  if (textAt(facts, "running") != "true")
    rows.push_back({"Agent", "stopped; taken from its files and the driver"});
  addPolicy(facts, rows);
  addDriver(facts, rows);
  std::erase_if(rows, [](const auto& row) { return row.back().empty(); });
  std::cout << columns(rows);
  Rows files;
  for (const Json& file : facts["files"])
    files.push_back({textAt(file, "name"), textAt(file, "bytes"), textAt(file, "changedAt")});
  std::cout << "Files\n" << columns(files, 2);
}

ExitStatus policy(Context& context) {
  const Json facts = policyFacts(context);
  if (context.options.json)
    std::cout << text(facts);
  else
    print(facts);
  return textAt(facts, "running") == "true" ? ExitStatus::ok : ExitStatus::notRunning;
}

}  // namespace

void addPolicy(CLI::App& app, Context& context, Action& chosen) {
  app.add_subcommand("policy", "Shows the policy in force, as agent, driver and files report it")
      ->callback([&context, &chosen] { chosen = [&context] { return policy(context); }; });
}

}  // namespace korvane::agentctl
