#include "cloud/agent_status.h"

#include <algorithm>
#include <sstream>

#include "comm/server_connection.h"
#include "config/log_settings.h"
#include "config/masking.h"
#include "config/policy_settings.h"
#include "config/server_settings.h"
#include "config/service_type.h"
#include "eventlog/recent_errors.h"
#include "ledger/loss_ledger.h"
#include "logs/forwarding_counters.h"
#include "logs/log_backlog.h"
#include "platform/clock.h"
#include "util/dates.h"

namespace korvane {
namespace {

constexpr int64_t kMsPerSecond = 1000;

void putText(JsonTree& tree, const std::string& name, const STRING& value) {
  putMember(tree, name, value.toUtf8());
}

// text: for everybody to read.
void putError(JsonTree& tree, int code, const std::string& text, int64_t wallMs) {
  JsonTree error;
  putMember(error, "code", code);
  putMember(error, "text", text);
  putTime(error, "at", wallMs);
  tree.push_back({"lastError", std::move(error)});
}

}  // namespace

void putMember(JsonTree& tree, const std::string& name, const std::string& value) {
  tree.push_back({name, JsonTree(value)});
}

void putMember(JsonTree& tree, const std::string& name, const char* value) {
  putMember(tree, name, std::string(value));
}

void putMember(JsonTree& tree, const std::string& name, int64_t value) {
  putMember(tree, name, std::to_string(value));
}

void putFlag(JsonTree& tree, const std::string& name, bool value) {
  putMember(tree, name, value ? "true" : "false");
}

void putTime(JsonTree& tree, const std::string& name, int64_t wallMs) {
  putMember(tree, name, wallMs == 0 ? std::string() : formatIso8601(wallMs));
}

JsonTree agentTree(const AboutAgent& about, platform::Clock& clock) {
  const int64_t up = clock.monotonicMs() - about.startedMonotonicMs;
  JsonTree tree;
  putMember(tree, "version", about.version());
  putMember(tree, "type", serviceType());
  putTime(tree, "startedAt", about.startedWallMs);
  putMember(tree, "uptimeSeconds", up / kMsPerSecond);
  putMember(tree, "pid", std::to_string(about.processId));
  putFlag(tree, "started", about.started());
  putFlag(tree, "shuttingDown", about.shuttingDown());
  return tree;
}

JsonTree serverTree(const ServerSettings& settings, ServerConnection& connection) {
  const std::string identifier = settings.getUniqueId().toUtf8();
  JsonTree tree;
  putMember(tree, "url", maskedSetting("agent.http.url", settings.getURL().toUtf8()));
  putFlag(tree, "plainHttpAllowed", settings.isPlainHttpEnabled());
  putText(tree, "current", settings.getServerCurrent());
  putText(tree, "primary", settings.getServerPrimary());
  putText(tree, "last", settings.getServerLast());
  putText(tree, "next", settings.getServerNext());
  putMember(tree, "guid", maskedIdentifier(identifier));
  putFlag(tree, "registered", settings.registered());
  const ExchangeOutcome outcome = connection.record().last();
  putTime(tree, "lastContactAt", outcome.lastOkMs);
  putError(tree, outcome.lastFailure.code, maskedText(outcome.lastFailure.text, identifier),
           outcome.lastFailure.wallMs);
  return tree;
}

JsonTree policyTree(const PolicySettings& settings) {
  JsonTree tree;
  putText(tree, "name", settings.getPlusVersion());
  putText(tree, "id", settings.getPlusID());
  putText(tree, "path", settings.getPlusDBPath());
  putMember(tree, "stateCode", settings.getPolicyStateCode());
  putText(tree, "stateText", settings.getPolicyStateStr());
  putMember(tree, "errorCode", settings.getPolicyErrorCode());
  putText(tree, "errorText", settings.getPolicyErrorStr());
  putFlag(tree, "builtIn", settings.useBuiltInPolicy());
  putText(tree, "plusFile", settings.getPlusPolicyFile());
  putTime(tree, "effectiveAt", settings.getPolicyEffectiveDate());
  putFlag(tree, "prevention", settings.isIPSEnabled());
  putFlag(tree, "rebootRequired", settings.isIPSRebootRequired());
  return tree;
}

JsonTree signingTree(const PolicySettings& settings) {
  JsonTree tree;
  putText(tree, "keys", settings.getSigningKeys());
  putMember(tree, "minimum", int64_t{settings.getSigningMinimum()});
  return tree;
}

// The lines of the status text, each a name, a blank and a word.
JsonTree technologiesTree(const AboutAgent& about) {
  std::istringstream lines(about.techStatus());
  JsonTree tree;
  for (std::string name, state; lines >> name >> state;) putMember(tree, name, state);
  return tree;
}

JsonTree countersTree(const ForwardingCounters& counters, const ServerSettings& settings) {
  const ForwardingCounts counts = counters.snapshot();
  JsonTree tree;
  putMember(tree, "read", std::to_string(counts.read));
  putMember(tree, "forwarded", std::to_string(counts.forwarded));
  putMember(tree, "folded", std::to_string(counts.folded));
  putMember(tree, "rejected", std::to_string(counts.rejected));
  putMember(tree, "retried", std::to_string(counts.retried));
  putMember(tree, "dropped", std::to_string(counts.dropped));
  putError(tree, counts.lastError.code,
           maskedText(counts.lastError.text, settings.getUniqueId().toUtf8()),
           counts.lastError.wallMs);
  return tree;
}

JsonTree accountTree(const StreamAccount& account) {
  JsonTree tree;
  putMember(tree, "log", account.stream);
  putTime(tree, "since", account.sinceMs);
  putMember(tree, "read", std::to_string(account.read));
  putMember(tree, "delivered", std::to_string(account.delivered));
  putMember(tree, "waiting", std::to_string(account.waiting));
  putMember(tree, "ledgered", std::to_string(account.ledgered));
  putMember(tree, "uncounted", std::to_string(account.uncounted));
  putFlag(tree, "closed", account.closed());
  return tree;
}

JsonTree entryTree(const LedgerEntry& entry) {
  JsonTree tree;
  putMember(tree, "stream", entry.stream);
  putMember(tree, "cause", nameOf(entry.cause));
  putFlag(tree, "counted", entry.counted);
  putMember(tree, "count", std::to_string(entry.count));
  putMember(tree, "parts", std::to_string(entry.parts));
  putMember(tree, "firstPosition", std::to_string(entry.first.position));
  putMember(tree, "lastPosition", std::to_string(entry.last.position));
  putTime(tree, "firstAt", entry.first.wallMs);
  putTime(tree, "lastAt", entry.last.wallMs);
  putMember(tree, "path", entry.log);
  return tree;
}

JsonTree sumsTree(const LossSums& sums) {
  JsonTree list;
  for (size_t i = 0; i < sums.size(); ++i) {
    if (sums[i] == LossSum{}) continue;
    JsonTree sum;
    putMember(sum, "cause", nameOf(static_cast<LossCause>(i)));
    putMember(sum, "lines", std::to_string(sums[i].lines));
    putMember(sum, "uncounted", std::to_string(sums[i].uncounted));
    list.push_back({"", std::move(sum)});
  }
  return list;
}

JsonTree ledgerTree(const LossLedger& ledger) {
  const LedgerView view = ledger.view();
  JsonTree accounts, entries, tree;
  for (const StreamAccount& account : view.accounts) accounts.push_back({"", accountTree(account)});
  for (const LedgerEntry& entry : view.entries) entries.push_back({"", entryTree(entry)});
  tree.push_back({"accounts", std::move(accounts)});
  tree.push_back({"totals", sumsTree(view.totals)});
  tree.push_back({"entries", std::move(entries)});
  return tree;
}

JsonTree ledgerSummaryTree(const LossLedger& ledger) {
  const LedgerView view = ledger.view();
  JsonTree tree;
  putMember(tree, "entries", std::to_string(view.entries.size()));
  putMember(tree, "lines", std::to_string(linesLost(view.totals)));
  putMember(tree, "uncounted", std::to_string(uncountedLosses(view.totals)));
  putFlag(tree, "closed",
          std::all_of(view.accounts.begin(), view.accounts.end(),
                      [](const auto& account) { return account.closed(); }));
  return tree;
}

// What everybody may read of a complaint: not the event line that could not be read.
std::string complaint(const eventlog::RecentError& error, const ServerSettings& settings) {
  if (error.source.starts_with("FixedFormatLog::parseLog()"))
    return "A line of an event log could not be parsed; the agent's own log has the details.";
  return maskedText(error.text, settings.getUniqueId().toUtf8());
}

JsonTree lastErrorsTree(const ServerSettings& settings) {
  JsonTree list;
  for (const eventlog::RecentError& error : eventlog::recentErrors()) {
    JsonTree entry;
    putTime(entry, "at", error.wallMs);
    putMember(entry, "type", error.type);
    putMember(entry, "source", error.source);
    putMember(entry, "code", error.id);
    putMember(entry, "text", complaint(error, settings));
    list.push_back({"", std::move(entry)});
  }
  return list;
}

JsonTree logsTree(const LocalParts& parts) {
  JsonTree list;
  for (const LogBacklog& log : logBacklogs(parts.files, parts.clock, parts.logs)) {
    JsonTree entry;
    putMember(entry, "type", log.type);
    putText(entry, "log", log.log);
    putText(entry, "pointerFile", log.pointerFile);
    putMember(entry, "offset", log.offset);
    putMember(entry, "backlogBytes", std::to_string(log.bytes));
    putMember(entry, "backlogRecords", std::to_string(log.records));
    putFlag(entry, "recordsExact", log.recordsExact);
    list.push_back({"", std::move(entry)});
  }
  return list;
}

JsonTree statusTree(const AboutAgent& about, const LocalParts& parts, const JsonTree& logs) {
  JsonTree tree;
  tree.push_back({"agent", agentTree(about, parts.clock)});
  tree.push_back({"server", serverTree(parts.server, parts.connection)});
  tree.push_back({"policy", policyTree(parts.policy)});
  tree.push_back({"signing", signingTree(parts.policy)});
  tree.push_back({"technologies", technologiesTree(about)});
  tree.push_back({"logs", logs});
  tree.push_back({"counters", countersTree(parts.counters, parts.server)});
  tree.push_back({"ledger", ledgerSummaryTree(parts.ledger)});
  tree.push_back({"lastErrors", lastErrorsTree(parts.server)});
  putFlag(tree, "trace", parts.logs.logTraceMessages());
  return tree;
}

}  // namespace korvane
