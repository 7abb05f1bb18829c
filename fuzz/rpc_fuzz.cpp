// Bytes of a client of the local channel, sent to a live server: as they are, and as a whole
// message. After each input, whatever it was, the next client's good request is answered.
//
// One thread is client and server in turns: the pipes are in memory, and every wait of the
// server lets time pass at once.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>

#include "platform/fake/fake_pipes.h"
#include "platform/fake/manual_clock.h"
#include "platform/native.h"
#include "rpc/fifo_frame.h"
#include "rpc/rpc_named_pipe.h"
#include "rpc/rpc_server.h"

namespace {

using namespace korvane;

class HastyPipe final : public platform::Pipe {
 public:
  HastyPipe(std::unique_ptr<platform::Pipe> pipe, platform::ManualClock& clock)
      : _pipe(std::move(pipe)), _clock(clock) {}
  uint32_t peek(size_t& available) override { return _pipe->peek(available); }
  uint32_t read(void* buffer, size_t size, size_t& got) override {
    return _pipe->read(buffer, size, got);
  }
  uint32_t write(const void* bytes, size_t size, size_t& written) override {
    return _pipe->write(bytes, size, written);
  }
  platform::PipeWait wait(platform::PipeEvent, uint32_t timeoutMs) override {
    _clock.advance(timeoutMs);
    return platform::PipeWait::ended;
  }
  bool peerIsAdministrator() override { return _pipe->peerIsAdministrator(); }
  uint32_t renew() override { return _pipe->renew(); }
  void interrupt() override { _pipe->interrupt(); }

 private:
  const std::unique_ptr<platform::Pipe> _pipe;
  platform::ManualClock& _clock;
};

class HastyPipes final : public platform::Pipes {
 public:
  explicit HastyPipes(platform::ManualClock& clock) : _clock(clock) {}
  uint32_t create(const std::string& name, platform::PipeAudience audience,
                  std::unique_ptr<platform::Pipe>& out) override {
    return wrapped(_pipes.create(name, audience, out), out);
  }
  uint32_t open(const std::string& name, std::unique_ptr<platform::Pipe>& out) override {
    return wrapped(_pipes.open(name, out), out);
  }

 private:
  uint32_t wrapped(uint32_t error, std::unique_ptr<platform::Pipe>& out) {
    if (error == 0) out = std::make_unique<HastyPipe>(std::move(out), _clock);
    return error;
  }
  platform::ManualClock& _clock;
  const std::unique_ptr<platform::Threading> _threading = platform::makeNativeThreading();
  platform::FakePipes _pipes{*_threading};
};

struct World {
  platform::ManualClock clock;
  HastyPipes pipes{clock};
  Fifo::Limits limits{1u << 20, 30000};
  RPCNamedPipe transport{
      pipes, clock, "fuzz", RPCNamedPipe::Role::server, platform::PipeAudience::everyone, limits};
  RPCServer server{transport, clock};

  World() {
    server.add(
        "echo", RPCServer::Access::everyone,
        [](const RPCRequest& request, RPCResponse& response) { response.result = request.params; });
    server.cycle();
  }

  // The server takes a cycle for each message that the last client left behind.
  void connect(Fifo& client) {
    for (int cycles = 0; !client.open(); ++cycles) {
      if (cycles > 40) __builtin_trap();
      server.cycle();
    }
  }

  void sendRaw(std::string_view bytes) {
    Fifo client(pipes, clock, "fuzz", limits);
    connect(client);
    for (; !bytes.empty(); bytes.remove_prefix(std::min(Fifo::kFrameBytes, bytes.size()))) {
      const std::string_view piece = bytes.substr(0, Fifo::kFrameBytes);
      client.writeBytes(piece.data(), piece.size(), 0);
    }
    server.cycle();
  }

  // A message that comes whole is always answered.
  void ask(const std::string& message, const char* expected) {
    Fifo client(pipes, clock, "fuzz", limits);
    std::string answer;
    connect(client);
    if (!client.writeMessage(message, 0) || !server.cycle() || !client.readMessage(answer, 0, 0) ||
        answer.find(expected) == std::string::npos)
      __builtin_trap();
    client.close();
    server.cycle();
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static World world;
  // What a pipe takes without a reader, less the client's own first frame.
  const std::string input(reinterpret_cast<const char*>(data), std::min<size_t>(size, 60000));
  std::string framed(Fifo::kFrameBytes, 0);
  putHeader(framed.data(), static_cast<uint32_t>(size));
  input.copy(framed.data() + kHeaderBytes, kFirstBytes);
  world.sendRaw(input);
  world.server.cycle();
  world.sendRaw(framed);
  world.server.cycle();
  world.ask(input, R"({"jsonrpc":"2.0",)");
  world.ask(R"({"jsonrpc":"2.0","id":1,"name":"echo","params":"x"})", R"("result":"x")");
  return 0;
}
