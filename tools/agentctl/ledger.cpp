// agentctl ledger: what was lost, and whether the accounts of the logs close.
#include <iostream>
#include <nlohmann/json.hpp>

#include "agentctl/commands.h"
#include "agentctl/facts.h"
#include "agentctl/output.h"

namespace korvane::agentctl {
namespace {

using Rows = std::vector<std::vector<std::string>>;

std::string lostRange(const Json& entry) {
  const std::string first = textAt(entry, "firstPosition"), last = textAt(entry, "lastPosition");
  return first == last ? "from byte " + first : "bytes " + first + " to " + last;
}

std::string lostAmount(const Json& entry) {
  const bool counted = textAt(entry, "counted") == "true";
  return textAt(entry, "count") + (counted ? " lines" : " uncounted");
}

Rows accountRows(const Json& facts) {
  Rows rows;
  if (textAt(facts, "running") != "true")
    rows.push_back({"Agent", "stopped; taken from its files"});
  for (const Json& account : facts["accounts"]) {
    rows.push_back({textAt(account, "log"), "read " + textAt(account, "read") + ", delivered " +
                                                textAt(account, "delivered") + ", waiting " +
                                                textAt(account, "waiting") + ", ledgered " +
                                                textAt(account, "ledgered")});
    const bool closed = textAt(account, "closed") == "true";
    rows.push_back(
        {"", (closed ? "closed, since " : "does NOT close, since ") + textAt(account, "since")});
  }
  return rows;
}

bool allClosed(const Json& facts) {
  for (const Json& account : facts["accounts"])
    if (textAt(account, "closed") != "true") return false;
  return true;
}

void printLedger(const Json& facts) {
  std::cout << columns(accountRows(facts));
  if (facts["entries"].empty()) {
    std::cout << "Nothing was lost.\n";
    return;
  }
  Rows entries;
  for (const Json& entry : facts["entries"]) {
    const std::string path = textAt(entry, "path");
    entries.push_back({textAt(entry, "cause"), lostAmount(entry),
                       path.empty() ? "several places" : lostRange(entry), textAt(entry, "firstAt"),
                       textAt(entry, "lastAt"), path});
  }
  std::cout << "Lost\n" << columns(entries, 2);
}

ExitStatus ledger(Context& context) {
  const Json facts = ledgerFacts(context);
  if (context.options.json)
    std::cout << text(facts);
  else
    printLedger(facts);
  if (textAt(facts, "running") != "true") return ExitStatus::notRunning;
  return allClosed(facts) ? ExitStatus::ok : ExitStatus::trouble;
}

}  // namespace

void addLedger(CLI::App& app, Context& context, Action& chosen) {
  app.add_subcommand("ledger", "Shows what was lost, and the accounts of the logs")
      ->callback([&context, &chosen] { chosen = [&context] { return ledger(context); }; });
}

}  // namespace korvane::agentctl
