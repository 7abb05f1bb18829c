// The requests that come over a transport, one after another, each with its answer.
//
// What is not a request is answered here with an error and never handed on. A peer is disconnected
// when it
//   - sends no first request for kFirstMs, or no further one for kSilentMs, whatever else it sends,
//   - begins a frame and does not end it, or does not take its answer,
//   - sends a request kSessionMs after it connected: others may be waiting.
// So no peer keeps the next one waiting indefinitely.
//
// Lifetime: transport and clock outlive the object. Threads: as the transport.
//
//   RPCRequest request;
//   if (queue.receive(request, 1000)) queue.answer(responseTo(request));
#pragma once

#include <optional>

#include "platform/fwd.h"
#include "rpc/rpc_message.h"
#include "rpc/rpc_transport_base.h"

namespace korvane {

class RPCMessageQueue {
 public:
  static constexpr int64_t kFirstMs = 3000;
  static constexpr int64_t kSilentMs = 10000;
  static constexpr int64_t kSessionMs = 60000;

  RPCMessageQueue(RPCTransportBase& transport, platform::Clock& clock)
      : _transport(transport), _clock(clock) {}

  // True with the next request; false when none came in about that time.
  [[nodiscard]] bool receive(RPCRequest& out, int waitMs);
  // Takes over what the response holds. False when the peer did not take it; it has been
  // let go then. Throws for an answer that cannot be written as JSON or is longer than a
  // message may be; nothing has been sent then.
  [[nodiscard]] bool answer(RPCResponse&& response);

 private:
  [[nodiscard]] bool take(std::string&& text, RPCRequest& out);
  void refuse(int code);
  [[nodiscard]] bool send(RPCResponse&& response);
  void notePeer();
  void drop();
  // Whether the present peer has used up its time; `asks`: it has sent a request.
  bool isOverdue(bool asks) const;

  RPCTransportBase& _transport;
  platform::Clock& _clock;
  uint64_t _connection = 0;
  std::optional<int64_t> _cameAt;  // the present peer
  int64_t _lastAskedAt = 0;
  bool _hasAsked = false;
};

}  // namespace korvane
