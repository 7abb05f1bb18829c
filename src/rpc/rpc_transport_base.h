// What a channel of requests and answers asks of the transport under it.
//
// Threads: one at a time; interrupt() from any other. Errors: false, or the reason a receive ended.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace korvane {

enum class RPCReceive {
  message,
  nothing,   // none came in that time, or the peer has gone; another may come
  stalled,   // the peer began a message and did not go on
  tooLong,   // the peer wants to send more than is taken; it can be answered
  unusable,  // there is no transport
};

class RPCTransportBase {
 public:
  virtual ~RPCTransportBase() = default;
  // Makes the transport ready; true when it is already.
  [[nodiscard]] virtual bool start() = 0;
  [[nodiscard]] virtual RPCReceive receive(std::string& message, int waitMs) = 0;
  [[nodiscard]] virtual bool send(const std::string& message) = 0;
  // Lets the present peer go; the server's end waits for the next one.
  virtual void drop() = 0;
  virtual bool hasPeer() = 0;
  virtual bool peerIsAdministrator() = 0;
  // Never the same for two peers.
  virtual uint64_t connection() const = 0;
  // The longest message that it takes.
  virtual size_t messageBytes() const = 0;
  // Why start() failed, a number of the system.
  virtual uint32_t lastError() const = 0;
  // Ends the present receive or send and every later one.
  virtual void interrupt() = 0;
};

}  // namespace korvane
