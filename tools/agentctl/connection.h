// The connection test as agentctl runs and shows it.
#pragma once

#include <string>

#include "agentctl/context.h"
#include "agentctl/json.h"
#include "comm/connection_test.h"

namespace korvane::agentctl {

// `server` empty: the one that the settings name.
ConnectionReport connectionReport(Context& context, const std::string& server);
Json asJson(const ConnectionReport& report);

}  // namespace korvane::agentctl
