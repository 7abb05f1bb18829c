// What the local channel reports about the agent, as trees; docs/rpc.md has their members. Nothing
// here queries the driver or the server. Any thread.
#pragma once

#include "cloud/local_service.h"
#include "rpc/json_text.h"

namespace korvane {

class PolicySettings;
class ServerSettings;

// Puts a member whose name may hold dots.
void putMember(JsonTree& tree, const std::string& name, const std::string& value);
void putMember(JsonTree& tree, const std::string& name, int64_t value);
void putMember(JsonTree& tree, const std::string& name, const char* value);
void putFlag(JsonTree& tree, const std::string& name, bool value);
// An ISO 8601 text; empty for 0.
void putTime(JsonTree& tree, const std::string& name, int64_t wallMs);

JsonTree agentTree(const AboutAgent& about, platform::Clock& clock);
JsonTree serverTree(const ServerSettings& settings, ServerConnection& connection);
JsonTree policyTree(const PolicySettings& settings);
JsonTree technologiesTree(const AboutAgent& about);
// A list; reads the forwarded logs to count what waits in them, within that room's bounds.
JsonTree logsTree(const LocalParts& parts);
// Accounts, sums by cause, entries; and what a status says of them.
JsonTree ledgerTree(const LossLedger& ledger);
JsonTree ledgerSummaryTree(const LossLedger& ledger);
// The settings' identifier is masked in the texts of these two.
JsonTree countersTree(const ForwardingCounters& counters, const ServerSettings& settings);
JsonTree lastErrorsTree(const ServerSettings& settings);
// All of the above, and whether traces are written.
JsonTree statusTree(const AboutAgent& about, const LocalParts& parts, const JsonTree& logs);

}  // namespace korvane
