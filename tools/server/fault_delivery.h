// How the faults that concern an answer change it, and put it on the wire. Stateless; a call works
// on one connection's thread and ends early at a stop.
#pragma once

#include <string>
#include <string_view>

#include "tools/server/connection.h"
#include "tools/server/misbehaviour.h"

namespace korvane::server {

// How much of a proper answer went out. An answer falsified on purpose counts as none, except that
// "cut" and "slow" tell what happened.
enum class Delivery { full, part, none };
std::string_view nameOf(Delivery delivery);

// Changes the body of an answer, before HTTP puts its headers in front.
void changeBody(const Fault& fault, std::string& body);

// Sends a whole HTTP answer the way the fault wants it.
Delivery sendWithFault(const Fault& fault, Connection& connection, const std::string& answer);

}  // namespace korvane::server
