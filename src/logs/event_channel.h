// The agent's end of the event channel: which client is attached, and what it says.
// docs/event-channel.md has the messages.
//
// One client is there at a time. It becomes the carrier by the request "attach", which only an
// administrator is granted. A client that does not attach within kAttachMs, that breaks the
// channel's rules, or that is refused and does not leave, is disconnected; what a client says
// before it is attached is ignored.
//
// Lifetime: transport and clock outlive the object. Threads: one; interrupt() from any other, which
// ends the present and every later wait for good.
// Errors: what the peer does wrong is a trace of source "RPC", and the peer is gone.
//
//   if (channel.start() && channel.attached() && channel.send(notice))
//     heard = channel.receive(100);
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/fwd.h"
#include "rpc/rpc_message.h"
#include "rpc/rpc_transport_base.h"

namespace korvane {

class EventChannel {
 public:
  static constexpr int64_t kAttachMs = 10000;
  // What a client that was refused gets to read the answer and go.
  static constexpr int64_t kLeaveMs = 1000;

  // The codes of an acknowledgement.
  static constexpr int kAccepted = 0;
  static constexpr int kThrottled = 429;
  static constexpr int kThrottledBackedOff = 430;

  enum class Signal {
    none,          // nothing that concerns a notice
    sent,          // the carrier has sent a notice on
    acknowledged,  // it has been taken, or not, at the far end
    gone,          // there was a carrier and there is none now
  };
  struct Heard {
    Signal signal = Signal::none;
    std::string identifier;  // of the notice
    int code = kAccepted;
    std::optional<int64_t> delayMs;  // the pause that the carrier asks for
  };

  EventChannel(RPCTransportBase& transport, platform::Clock& clock)
      : _transport(transport), _clock(clock) {}

  // Makes the pipe where there is none. Otherwise lastError() says why there still is none.
  [[nodiscard]] bool start();
  uint32_t lastError() const { return _transport.lastError(); }
  bool attached() const { return _attached != 0 && _attached == _transport.connection(); }
  [[nodiscard]] bool send(const std::string& notice);
  // Waits for a message at most about that long. What has come already is never waited for.
  [[nodiscard]] Heard receive(int waitMs);
  // Hears what has come while nothing is in flight; false without a pipe.
  [[nodiscard]] bool tend();
  // Lets the client go, so that nothing it has still to say is ever heard.
  void drop();
  void interrupt() { _transport.interrupt(); }

 private:
  void noteClient();
  [[nodiscard]] Heard take(const std::string& text);
  [[nodiscard]] Heard handleSignal(const RPCRequest& request);
  [[nodiscard]] Heard broken(const std::string& what);
  void attach(const RPCRequest& request);
  void answer(const RPCResponse& response);

  RPCTransportBase& _transport;
  platform::Clock& _clock;
  uint64_t _attached = 0;  // the connection of the carrier
  uint64_t _connection = 0;
  std::optional<int64_t> _leavesAt;  // when the client that is not attached is disconnected
  bool _refusalTold = false;
};

}  // namespace korvane
