// Inventories of agents: the pieces in which they come, put together, unpacked and kept as XML.
//
// A piece is known by agent, request, the archive's digest and its offset; one that comes again takes
// the place of the first. With the last message of a request an inventory is made of them, or the
// fault is noted that keeps it from being one. Operations belong under the Records' mutex and in a
// transaction of its database.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tools/server/records.h"
#include "tools/server/wire_message.h"

namespace korvane::server {

// One message of application data that the rules allow (request_rules.h); `piece` may be empty.
void takeApplicationData(Records& records, int64_t agent, const WireProperties& properties,
                         std::string_view piece) REQUIRES(records.mutex());

// The XML of an inventory.
std::optional<std::string> inventoryXml(Records& records, int64_t id) REQUIRES(records.mutex());

}  // namespace korvane::server
