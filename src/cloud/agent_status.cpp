#include "cloud/agent_status.h"

#include <sstream>

#include "comm/exchange_record.h"
#include "config/agent_config.h"
#include "config/masking.h"
#include "config/service_type.h"
#include "eventlog/recent_errors.h"
#include "logs/forwarding_counters.h"
#include "logs/log_backlog.h"
#include "platform/clock.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "util/dates.h"

namespace korvane {
namespace {

constexpr int64_t kMsPerSecond = 1000;

void putText(JsonTree& tree, const std::string& name, const STRING& value) {
  putMember(tree, name, value.toUtf8());
}

std::string masked(const std::string& text) {
  return maskedText(text, AgentConfig::getInstance()->getUniqueId().toUtf8());
}

void putError(JsonTree& tree, int code, const std::string& text, int64_t wallMs) {
  JsonTree error;
  putMember(error, "code", code);
  putMember(error, "text", masked(text));
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

JsonTree agentTree(const AboutAgent& about) {
  platform::Platform& system = platform::current();
  const int64_t up = system.clock.monotonicMs() - about.startedMonotonicMs;
  JsonTree tree;
  putMember(tree, "version", about.version());
  putMember(tree, "type", serviceType());
  putTime(tree, "startedAt", about.startedWallMs);
  putMember(tree, "uptimeSeconds", up / kMsPerSecond);
  putMember(tree, "pid", std::to_string(system.processes.currentId()));
  putFlag(tree, "started", AgentConfig::isAgentStarted());
  putFlag(tree, "shuttingDown", AgentConfig::isAgentShuttingDown());
  return tree;
}

JsonTree serverTree() {
  const AgentConfig& config = *AgentConfig::getInstance();
  JsonTree tree;
  putMember(tree, "url", maskedSetting("agent.http.url", config.getURL().toUtf8()));
  putText(tree, "current", config.getServerCurrent());
  putText(tree, "primary", config.getServerPrimary());
  putText(tree, "last", config.getServerLast());
  putText(tree, "next", config.getServerNext());
  putMember(tree, "guid", maskedIdentifier(config.getUniqueId().toUtf8()));
  putFlag(tree, "registered", config.registered());
  const ExchangeOutcome outcome = lastExchange();
  putTime(tree, "lastContactAt", outcome.lastOkMs);
  putError(tree, outcome.lastFailure.code, outcome.lastFailure.text, outcome.lastFailure.wallMs);
  return tree;
}

JsonTree policyTree() {
  const AgentConfig& config = *AgentConfig::getInstance();
  JsonTree tree;
  putText(tree, "name", config.getPlusVersion());
  putText(tree, "id", config.getPlusID());
  putText(tree, "path", config.getPlusDBPath());
  putMember(tree, "stateCode", config.getPolicyStateCode());
  putText(tree, "stateText", config.getPolicyStateStr());
  putMember(tree, "errorCode", config.getPolicyErrorCode());
  putText(tree, "errorText", config.getPolicyErrorStr());
  putFlag(tree, "builtIn", config.useBuiltInPolicy());
  putText(tree, "plusFile", config.getPlusPolicyFile());
  putTime(tree, "effectiveAt", config.getPolicyEffectiveDate());
  putFlag(tree, "prevention", config.isIPSEnabled());
  putFlag(tree, "rebootRequired", config.isIPSRebootRequired());
  return tree;
}

// The lines of the status text, each a name, a blank and a word.
JsonTree technologiesTree(const AboutAgent& about) {
  std::istringstream lines(about.techStatus());
  JsonTree tree;
  for (std::string name, state; lines >> name >> state;) putMember(tree, name, state);
  return tree;
}

JsonTree countersTree() {
  const ForwardingCounts counts = ForwardingCounters::snapshot();
  JsonTree tree;
  putMember(tree, "read", std::to_string(counts.read));
  putMember(tree, "forwarded", std::to_string(counts.forwarded));
  putMember(tree, "folded", std::to_string(counts.folded));
  putMember(tree, "rejected", std::to_string(counts.rejected));
  putMember(tree, "retried", std::to_string(counts.retried));
  putMember(tree, "dropped", std::to_string(counts.dropped));
  putError(tree, counts.lastError.code, counts.lastError.text, counts.lastError.wallMs);
  return tree;
}

// What everybody may read of a complaint: not the event line that could not be read.
std::string complaint(const eventlog::RecentError& error) {
  if (error.source.starts_with("FixedFormatLog::parseLog()"))
    return "A line of an event log could not be parsed; the agent's own log has the details.";
  return masked(error.text);
}

JsonTree lastErrorsTree() {
  JsonTree list;
  for (const eventlog::RecentError& error : eventlog::recentErrors()) {
    JsonTree entry;
    putTime(entry, "at", error.wallMs);
    putMember(entry, "type", error.type);
    putMember(entry, "source", error.source);
    putMember(entry, "code", error.id);
    putMember(entry, "text", complaint(error));
    list.push_back({"", std::move(entry)});
  }
  return list;
}

JsonTree logsTree() {
  JsonTree list;
  for (const LogBacklog& log : logBacklogs()) {
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

JsonTree statusTree(const AboutAgent& about, const JsonTree& logs) {
  JsonTree tree;
  tree.push_back({"agent", agentTree(about)});
  tree.push_back({"server", serverTree()});
  tree.push_back({"policy", policyTree()});
  tree.push_back({"technologies", technologiesTree(about)});
  tree.push_back({"logs", logs});
  tree.push_back({"counters", countersTree()});
  tree.push_back({"lastErrors", lastErrorsTree()});
  putFlag(tree, "trace", AgentConfig::getInstance()->logTraceMessages());
  return tree;
}

}  // namespace korvane
