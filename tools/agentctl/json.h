// The JSON that agentctl prints.
//
// The local channel only has texts; typed() gives members with known names their actual types:
// numbers, true and false, lists. What `agentctl call` prints is left as the agent sent it. Pure
// functions.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "rpc/json_text.h"

namespace korvane::agentctl {

using Json = nlohmann::ordered_json;

// Texts, objects and lists; an empty object or list is an empty text.
Json asAnswered(const JsonTree& tree);
// The same with the kinds put in, by the members' names.
Json typed(const JsonTree& tree);
// In lines, with a line feed at the end. Malformed UTF-8 becomes U+FFFD.
std::string text(const Json& json);

}  // namespace korvane::agentctl
