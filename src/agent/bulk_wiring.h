// What bulk log transfer is given of its agent: the server, the driver's logs, the own log.
#pragma once

#include "agent/agent_context.h"
#include "bulk/bulk_parts.h"

namespace korvane {

// Refers to the parts of the run.
[[nodiscard]] bulk::Parts bulkPartsOf(const AgentContext& context);

}  // namespace korvane
