// Resolves host names without ever blocking on the system's resolver.
//
// The resolver runs on a helper thread. When a time-out or a stop ends the wait, the helper is left
// behind: it owns everything it touches except the platform, ends by itself when the resolver
// returns, and a later look-up of the same name waits for it instead of starting another. So at
// most one helper per name is ever outstanding. Any thread may call; nothing throws but
// std::bad_alloc.
//
//   std::string address = lookUpAddress("server-1.example", 10000);  // "" when there is none
#pragma once

#include <cstdint>
#include <string>

namespace korvane {

// The first IPv4 address of the host, dotted; empty when it cannot be resolved, when the time is
// up, or when shutdownToken() is set. A dotted address is its own answer and asks nobody.
std::string lookUpAddress(const std::string& host, uint32_t timeoutMs);

// How many helpers have not ended.
size_t lookUpsOutstanding();

}  // namespace korvane
