// Whether an agent's request conforms to docs/protocol.md: the headers and their order, the
// sections that its path word may have, their kinds, and the names in them with their order.
//
// It is deliberately strict, so that an agent which passes it would also pass a server that
// somebody else writes from that page. Pure functions; any thread. The body itself has been
// read by readMessage().
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/server/wire_message.h"

namespace korvane::server {

// Header lines as they came, in order; names keep their case.
using HeaderLines = std::vector<std::pair<std::string, std::string>>;

// The header lines of a request's head ("POST ... CR LF name: value CR LF ... CR LF CR LF").
HeaderLines readHeaderLines(std::string_view head);

// What is wrong with the headers of a request for this path word; empty when nothing is.
std::string checkHeaders(std::string_view word, const HeaderLines& headers);

// What is wrong with the sections of a request; empty when nothing is.
std::string checkSections(std::string_view word, const std::vector<WireSection>& sections);

// The result is a status message: one that asks what is waiting, told by "agent.timezone".
bool isStatus(std::string_view resultProperties);

}  // namespace korvane::server
