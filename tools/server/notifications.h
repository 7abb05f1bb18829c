// The one-byte notification that asks an agent to fetch its updates at once. Stateless; throws
// std::system_error naming address and port when the agent cannot be reached within two seconds.
#pragma once

#include <string>

namespace korvane::server {

// Connects, sends the byte and closes.
void sendNotification(const std::string& address, int port, unsigned char byte);

}  // namespace korvane::server
