#include "rpc/rpc_named_pipe.h"

#include "util/ignore_result.h"

namespace korvane {

bool RPCNamedPipe::start() {
  if (_fifo.isOpen()) return true;
  return _role == Role::server ? _fifo.create() : _fifo.open();
}

RPCReceive RPCNamedPipe::receive(std::string& message, int waitMs) {
  if (_fifo.readMessage(message, waitMs, kFrameMs)) return RPCReceive::message;
  if (!_fifo.isOpen()) return RPCReceive::unusable;
  switch (_fifo.lastRead()) {
    case Fifo::ReadEnd::tooLong:
      return RPCReceive::tooLong;
    case Fifo::ReadEnd::stalled:
      return RPCReceive::stalled;
    default:
      return RPCReceive::nothing;
  }
}

void RPCNamedPipe::drop() {
  if (_role == Role::server)
    // start() tries again.
    ignoreResult(_fifo.create());
  else
    _fifo.close();
}

}  // namespace korvane
