// Queries of what was received, as JSON for the administration interface. Each operation takes the
// Records' mutex for its duration; failures throw DatabaseError.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "tools/server/events.h"
#include "tools/server/records.h"

namespace korvane::server {

struct Page {
  std::string guid;   // one agent, or empty for all
  std::string word;   // of requests, or type of results; empty for all
  int64_t after = 0;  // rows with higher numbers only
  int64_t limit = 100;
};

nlohmann::json reportState(Records& records);
nlohmann::json reportAgents(Records& records);
// What an agent last said about its policy, each change of that (the newest 50, oldest first), and
// its last result of every kind of update. An empty guid: of all agents.
nlohmann::json reportPolicyState(Records& records, const std::string& guid);
nlohmann::json reportRequests(Records& records, const Page& page);
nlohmann::json reportResults(Records& records, const Page& page);
nlohmann::json reportRecords(Records& records, const Page& page);
nlohmann::json reportBinaries(Records& records, const Page& page);
nlohmann::json reportApplicationData(Records& records, const Page& page);
// For each agent and log whether everything that was read is here, or what is missing and why, as the
// agent last told. An empty guid: of all agents.
nlohmann::json reportAccounting(Records& records, const std::string& guid);
nlohmann::json reportInventories(Records& records, const Page& page);
nlohmann::json reportAssignments(Records& records);

// Sums over sequence numbers of the events stored; with `exact`, also of whole (v1, v2, v3)
// triples.
nlohmann::json reportEvents(Records& records, const std::string& guid,
                            std::optional<EventSpan> wanted, bool exact);

// The bytes of one binary part.
std::optional<std::string> binaryBytes(Records& records, int64_t id);

}  // namespace korvane::server
