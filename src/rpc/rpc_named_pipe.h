// The transport over a named pipe: a Fifo with the channel's time-outs.
// Lifetime: pipes and clock outlive the object, which closes its pipe at the end.
#pragma once

#include "rpc/fifo.h"
#include "rpc/rpc_transport_base.h"

namespace korvane {

class RPCNamedPipe final : public RPCTransportBase {
 public:
  enum class Role { server, client };
  // A peer has this long for the rest of a frame, and to make room for one.
  static constexpr int kFrameMs = 2000;

  RPCNamedPipe(platform::Pipes& pipes, platform::Clock& clock, const std::string& name, Role role,
               platform::PipeAudience audience = platform::PipeAudience::everyone,
               Fifo::Limits limits = {})
      : _fifo(pipes, clock, name, limits, audience), _role(role) {}

  bool start() override;
  RPCReceive receive(std::string& message, int waitMs) override;
  bool send(const std::string& message) override { return _fifo.writeMessage(message, kFrameMs); }
  void drop() override;
  bool hasPeer() override { return _fifo.hasPeer(); }
  bool peerIsAdministrator() override { return _fifo.peerIsAdministrator(); }
  uint64_t connection() const override { return _fifo.connection(); }
  size_t messageBytes() const override { return _fifo.limits().messageBytes; }
  uint32_t lastError() const override { return _fifo.lastError(); }
  void interrupt() override { _fifo.interrupt(); }

 private:
  Fifo _fifo;
  const Role _role;
};

}  // namespace korvane
