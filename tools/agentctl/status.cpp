// agentctl status: one screen about the agent.
#include <iostream>
#include <nlohmann/json.hpp>

#include "agentctl/commands.h"
#include "agentctl/facts.h"
#include "agentctl/output.h"

namespace korvane::agentctl {
namespace {

using Rows = std::vector<std::vector<std::string>>;

// "2026-11-21T10:15:30.123Z" as people read it.
std::string readable(std::string time) {
  if (time.size() < 20) return time;
  time[10] = ' ';
  return time.substr(0, 19) + " UTC";
}

std::string duration(const std::string& secondsText) {
  const long long seconds = secondsText.empty() ? 0 : std::stoll(secondsText);
  const long long days = seconds / 86400, hours = seconds / 3600 % 24, minutes = seconds / 60 % 60;
  if (days > 0) return std::to_string(days) + " d " + std::to_string(hours) + " h";
  if (hours > 0) return std::to_string(hours) + " h " + std::to_string(minutes) + " min";
  if (minutes > 0) return std::to_string(minutes) + " min";
  return std::to_string(seconds) + " s";
}

const char* typeName(const std::string& type) {
  return type == "1" ? "standard" : type == "0" ? "no type set" : "cloud-managed";
}

std::string orNone(const std::string& text, const char* none) {
  return text.empty() ? none : text;
}

// A text with what goes before it, or nothing when there is no text.
std::string part(const char* before, const std::string& text) {
  return text.empty() ? "" : before + text;
}

void addAgent(const Json& facts, Rows& rows) {
  const std::string type = textAt(facts, "agent/type");
  const std::string about = part(", version ", textAt(facts, "agent/version")) + ", type " + type +
                            " (" + typeName(type) + ")";
  if (textAt(facts, "running") != "true") {
    rows.push_back({"Agent", "stopped" + about});
    if (const std::string last = textAt(facts, "lastEvent/at"); !last.empty())
      rows.push_back({"", "last event " + readable(last) + ": " + textAt(facts, "lastEvent/text")});
    rows.push_back({"", "what follows comes from its files alone"});
    return;
  }
  const char* state = textAt(facts, "agent/shuttingDown") == "true" ? "stopping" : "running";
  rows.push_back({"Agent", state + about + ", process " + textAt(facts, "agent/pid")});
  rows.push_back({"", "since " + readable(textAt(facts, "agent/startedAt")) + ", " +
                          duration(textAt(facts, "agent/uptimeSeconds"))});
}

void addServer(const Json& facts, Rows& rows) {
  const bool managedHere = textAt(facts, "agent/type") == "1";
  if (!managedHere && textAt(facts, "server/url").empty()) return;
  rows.push_back({"Server", orNone(textAt(facts, "server/url"), "none")});
  if (textAt(facts, "server/plainHttpAllowed") == "true")
    rows.push_back({"", "plain HTTP, not encrypted, is allowed (agent.http.plain.enabled)"});
  const std::string current = textAt(facts, "server/current");
  const std::string which =
      current.empty() ? part("primary ", textAt(facts, "server/primary"))
                      : "current " + current + part(", primary ", textAt(facts, "server/primary")) +
                            part(", next ", textAt(facts, "server/next"));
  if (!which.empty()) rows.push_back({"", which});
  if (textAt(facts, "running") == "true")
    rows.push_back(
        {"", "last contact " + orNone(readable(textAt(facts, "server/lastContactAt")), "never")});
  const std::string guid = textAt(facts, "server/guid");
  rows.push_back({"Registration", guid.empty() ? "not registered" : "registered as " + guid});
}

void addPolicyRow(const Json& facts, Rows& rows) {
  const std::string id = textAt(facts, "policy/id");
  rows.push_back(
      {"Policy", orNone(textAt(facts, "policy/name"), "none known") +
                     (id.empty() ? "" : " (" + id + ")") +
                     part(", in force since ", readable(textAt(facts, "policy/effectiveAt")))});
  if (const std::string state = textAt(facts, "policy/stateText"); !state.empty())
    rows.push_back({"", "state " + textAt(facts, "policy/stateCode") + ": " + state});
  rows.push_back({"", "report " + textAt(facts, "policy/errorCode") + ": " +
                          textAt(facts, "policy/errorText")});
}

void addSigning(const Json& facts, Rows& rows) {
  const std::string keys = textAt(facts, "signing/keys");
  rows.push_back({"Signatures", keys.empty()
                                    ? "not asked for of policies, content and software "
                                      "(update.signing.keys is empty)"
                                    : "asked for of policies, content and software: at least " +
                                          textAt(facts, "signing/minimum") +
                                          " of the signers that began with " + keys});
}

void addTechnologies(const Json& facts, Rows& rows) {
  std::string line;
  if (facts.contains("technologies"))
    for (const auto& [name, state] : facts["technologies"].items())
      line += (line.empty() ? "" : ", ") + name + " " + state.get<std::string>();
  if (!line.empty()) rows.push_back({"Technologies", line});
}

void addBacklog(const Json& facts, Rows& rows) {
  if (!facts.contains("logs")) return;
  const char* label = "Backlog";
  for (const Json& log : facts["logs"]) {
    const bool exact = textAt(log, "recordsExact") != "false";
    rows.push_back({label, textAt(log, "backlogBytes") + " bytes, " + (exact ? "" : "at least ") +
                               textAt(log, "backlogRecords") + " records"});
    label = "";
    const std::string name = textAt(log, "log");
    rows.push_back(
        {"", name.empty() ? "no log is known yet" : name + " at " + textAt(log, "offset")});
  }
}

void addCounters(const Json& facts, Rows& rows) {
  if (!facts.contains("counters")) return;
  std::string line;
  for (const char* name : {"read", "forwarded", "folded", "rejected", "retried", "dropped"})
    line += (line.empty() ? "" : ", ") + std::string(name) + " " + textAt(facts["counters"], name);
  rows.push_back({"Events", line});
  const std::string error = textAt(facts, "counters/lastError/text");
  if (!error.empty())
    rows.push_back({"", "last failure " + readable(textAt(facts, "counters/lastError/at")) + ": " +
                            textAt(facts, "counters/lastError/code") + " " + error});
}

void addLosses(const Json& facts, Rows& rows) {
  if (!facts.contains("ledger")) return;
  const std::string lines = textAt(facts, "ledger/lines");
  const std::string uncounted = textAt(facts, "ledger/uncounted");
  rows.push_back(
      {"Lost", lines == "0" && uncounted == "0"
                   ? "nothing"
                   : lines + " lines" +
                         (uncounted == "0" ? "" : ", " + uncounted + " times uncounted") +
                         " (agentctl ledger)"});
  if (textAt(facts, "ledger/closed") == "false")
    rows.push_back({"", "the accounts of the logs do not close"});
}

void addErrors(const Json& facts, Rows& rows) {
  constexpr size_t kShown = 5;
  size_t shown = 0;
  for (const Json& error : facts.value("lastErrors", Json::array())) {
    if (shown == kShown) break;
    rows.push_back({shown++ == 0 ? "Complaints" : "", readable(textAt(error, "at")) + " " +
                                                          textAt(error, "code") + " " +
                                                          textAt(error, "text")});
  }
}

void print(const Json& facts, const std::vector<std::string>& trouble) {
  Rows rows;
  addAgent(facts, rows);
  addServer(facts, rows);
  addPolicyRow(facts, rows);
  addSigning(facts, rows);
  addTechnologies(facts, rows);
  addBacklog(facts, rows);
  addCounters(facts, rows);
  addLosses(facts, rows);
  if (textAt(facts, "trace") == "true") rows.push_back({"Trace", "on"});
  addErrors(facts, rows);
  for (size_t i = 0; i < trouble.size(); ++i) rows.push_back({i == 0 ? "Trouble" : "", trouble[i]});
  std::cout << columns(rows);
}

ExitStatus status(Context& context) {
  Json facts = statusFacts(context);
  const std::vector<std::string> trouble = troubleOf(facts);
  facts["trouble"] = trouble;
  if (context.options.json)
    std::cout << text(facts);
  else
    print(facts, trouble);
  if (textAt(facts, "running") != "true") return ExitStatus::notRunning;
  return trouble.empty() ? ExitStatus::ok : ExitStatus::trouble;
}

}  // namespace

void addStatus(CLI::App& app, Context& context, Action& chosen) {
  app.add_subcommand("status",
                     "Shows the agent's state: exits with 0 when all is well, 3 when it is not "
                     "running, 4 with trouble")
      ->callback([&context, &chosen] { chosen = [&context] { return status(context); }; });
}

}  // namespace korvane::agentctl
