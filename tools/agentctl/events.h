// Events of the agent's own log as agentctl shows them.
#pragma once

#include <string>

#include "agentctl/context.h"
#include "agentctl/json.h"
#include "agentctl/own_log.h"

namespace korvane::agentctl {

// The catalogue beside this program; empty when there is none, and the records' own texts
// serve then.
eventlog::Catalogue readCatalogue(Context& context);

// "2026-11-21 10:15:30.123 warning 10102 UpdateThread: text"
std::string asLine(const LogRecord& record, const eventlog::Catalogue& catalogue);
Json asJson(const LogRecord& record, const eventlog::Catalogue& catalogue);

}  // namespace korvane::agentctl
