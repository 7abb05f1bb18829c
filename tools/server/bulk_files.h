// Bulk log files (docs/bulk-logs.md) as the server keeps account of them: each counts once, by its name
// and SHA-256, however often it arrives, and the parts of logs in it are known by its manifest.
//
// Failures throw DatabaseError. What is no bundle is kept with its fault and has no parts.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "tools/server/records.h"

namespace korvane::server {

// Belongs between the making of a transaction and its commit.
void storeBulkFile(Records& records, int64_t request, int64_t agent, const WireSection& section,
                   std::string_view fileName) REQUIRES(records.mutex());

// The files with their parts, oldest first. An empty guid: of all agents.
nlohmann::json reportBulkFiles(Records& records, const std::string& guid, int64_t after,
                               int64_t limit);
// Sums, and for each log which of its bytes are here, twice, or missing.
nlohmann::json reportBulkLogs(Records& records, const std::string& guid);

}  // namespace korvane::server
