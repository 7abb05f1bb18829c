// A live server, good clients, and clients that do everything wrong.
#include "rpc/rpc_server.h"

#include <gmock/gmock.h>

#include "platform/fake/fake_platform.h"
#include "rpc/rpc_named_pipe.h"
#include "tests/rpc/pipe_worlds.h"
#include "tests/support/watchdog.h"

namespace korvane {
namespace {

using namespace platform;
using testing::HasSubstr;
using tests::kLongMs;

void addMethods(RPCServer& server) {
  using Access = RPCServer::Access;
  server.add("echo", Access::everyone, [](const RPCRequest& request, RPCResponse& response) {
    response.result = request.params;
  });
  server.add("set", Access::administrators,
             [](const RPCRequest&, RPCResponse& response) { response.result.put("", "done"); });
  server.add("number", Access::everyone, [](const RPCRequest& request, RPCResponse& response) {
    response.result.put("", request.params.get<int>("n"));
  });
  server.add("missing", Access::everyone,
             [](const RPCRequest&, RPCResponse&) { throw RPCError(kRpcFileNotFound); });
  server.add("broken", Access::everyone,
             [](const RPCRequest&, RPCResponse&) { throw std::logic_error("a fault"); });
  server.add("unwritable", Access::everyone, [](const RPCRequest&, RPCResponse& response) {
    response.result.data() = "text";
    response.result.add("member", "too");
  });
  server.add("endless", Access::everyone, [](const RPCRequest&, RPCResponse& response) {
    response.appdata = std::string(9u << 20, 'x');
  });
}

// Serves on a thread of its own until the end of the scope.
class Serving {
 public:
  Serving(Threading& threading, Pipes& pipes, Clock& clock, const std::string& name)
      : _transport(pipes, clock, name, RPCNamedPipe::Role::server), _server(_transport, clock) {
    addMethods(_server);
    _transport.start();
    _thread = threading.createThread(0, [this] { _server.run(_stop); });
  }
  ~Serving() {
    _stop.request();
    const tests::Wait wait("the server's thread");
    _thread->join(kInfinite);
  }

 private:
  RPCNamedPipe _transport;
  RPCServer _server;
  StopToken _stop;
  std::unique_ptr<NativeThread> _thread;
};

template <class World>
class RPCServerOnPipes : public testing::Test {
 protected:
  World world;
  std::unique_ptr<Clock> clock = makeNativeClock();
  std::unique_ptr<Threading> threading = makeNativeThreading();
  const std::string name = tests::uniquePipeName();
  Serving serving{*threading, world.pipes, *clock, name};
  Fifo client{world.pipes, *clock, name};
  StopToken never;

  // The server may be recreating its pipe.
  bool connect() {
    for (int i = 0; i < 200 && !client.open(); ++i) never.sleepFor(50);
    return client.isOpen();
  }
  std::string ask(const std::string& json) {
    std::string answer;
    for (int i = 0; i < 20; ++i) {
      if (connect() && client.writeMessage(json, kLongMs) &&
          client.readMessage(answer, kLongMs, kLongMs))
        return answer;
      client.close();
    }
    return "no answer";
  }
  void expectService() {
    EXPECT_EQ(ask(R"({"jsonrpc":"2.0","id":1,"name":"echo","params":{"a":"b"}})"),
              R"({"jsonrpc":"2.0","id":"1","result":{"a":"b"}})");
  }
};

TYPED_TEST_SUITE(RPCServerOnPipes, tests::PipeWorlds);

TYPED_TEST(RPCServerOnPipes, everyRequestHasItsAnswer) {
  const struct {
    const char *request, *answer;
  } cases[] = {
      {R"({"jsonrpc":"2.0","id":3,"name":"number","params":{"n":5}})", R"("id":"3","result":"5")"},
      {R"({"jsonrpc":"2.0","name":"number","params":{"n":5}})",
       R"({"jsonrpc":"2.0","result":"5"})"},
      {R"({"jsonrpc":"2.0","id":3,"name":"number","params":{"n":"x"}})", R"("-32602")"},
      {R"({"jsonrpc":"2.0","id":3,"name":"number"})", R"("-32602")"},
      {R"({"jsonrpc":"2.0","id":3,"name":"none"})", R"("id":"3","error":{"code":"-32601")"},
      {R"({"jsonrpc":"2.0","id":3,"name":"missing"})", R"("-32001")"},
      {R"({"jsonrpc":"2.0","id":3,"name":"broken"})", R"("id":"3","error":{"code":"-32603")"},
      {R"({"jsonrpc":"2.0","id":3,"name":"unwritable"})", R"("id":"3","error":{"code":"-32603")"},
      {R"({"jsonrpc":"2.0","id":3,"name":"endless"})", R"("id":"3","error":{"code":"-32603")"},
      {R"({"jsonrpc":"2.0","id":3,"name":"set"})", R"("result":"done")"},
      {R"({"jsonrpc":"2.0","id":3})", R"("-32600")"},
      {R"({"jsonrpc":"2.0","id":-3,"name":"set"})", R"("-32600")"},
      {R"({"name":"set"})", R"("-32600")"},
      {"nonsense", R"({"jsonrpc":"2.0","error":{"code":"-32700","message":"Parse error"}})"},
      {"", R"("-32700")"},
  };
  for (const auto& c : cases) EXPECT_THAT(this->ask(c.request), HasSubstr(c.answer)) << c.request;
  EXPECT_THAT(this->ask(std::string(1000000, '[')), HasSubstr(R"("-32700")"));
}

TYPED_TEST(RPCServerOnPipes, aClientThatMisbehavesDoesNotStopTheNext) {
  std::string frame("\xDE\xAD\xBE\xEF\xFF\xFF\xFF\xFF", 8);
  frame.resize(Fifo::kFrameBytes, 'x');
  std::string begun("\xDE\xAD\xBE\xEF\x00\x00\x01\x00", 8);
  begun.resize(Fifo::kFrameBytes, 'x');
  const std::string starts[] = {"", "half a frame", std::string(Fifo::kFrameBytes, 'm'), frame,
                                begun};
  for (const std::string& start : starts) {
    ASSERT_TRUE(this->connect());
    if (!start.empty()) this->client.writeBytes(start.data(), start.size(), kLongMs);
    this->client.close();
    this->expectService();
    this->client.close();
  }
}

TYPED_TEST(RPCServerOnPipes, aStopEndsEveryWait) {
  ASSERT_TRUE(this->connect());
  this->client.writeBytes("half", 4, kLongMs);
}

// A transport whose peer does what the test says, on a clock that the test moves.
class ScriptedTransport : public RPCTransportBase {
 public:
  bool start() override { return true; }
  RPCReceive receive(std::string& message, int) override {
    message = text;
    return result;
  }
  bool send(const std::string&) override { return takes; }
  void drop() override {
    ++dropped;
    ++number;
  }
  bool hasPeer() override { return peer; }
  bool peerIsAdministrator() override { return administrator; }
  uint64_t connection() const override { return number; }
  size_t messageBytes() const override { return 1000; }
  uint32_t lastError() const override { return 0; }
  void interrupt() override {}

  RPCReceive result = RPCReceive::nothing;
  std::string text;
  bool takes = true, peer = true, administrator = true;
  int dropped = 0;
  uint64_t number = 1;
};

class RPCServerRules : public testing::Test {
 protected:
  ManualClock clock;
  ScriptedTransport transport;
  RPCServer server{transport, clock};

  RPCServerRules() { addMethods(server); }
  // How many cycles of a second each until the peer is disconnected; at most 200.
  int secondsUntilDropped() {
    for (int i = 1; i <= 200; ++i) {
      server.cycle();
      if (transport.dropped > 0) return i;
      clock.advance(1000);
    }
    return 200;
  }
};

TEST_F(RPCServerRules, aPeerHasABoundedTime) {
  const std::string good = R"({"jsonrpc":"2.0","id":1,"name":"echo"})";
  const struct {
    const char* what;
    RPCReceive result;
    std::string text;
    bool takes;
    int least, most;
  } cases[] = {
      {"silent", RPCReceive::nothing, "", true, 3, 6},
      {"half a frame", RPCReceive::stalled, "", true, 1, 1},
      {"no JSON, for ever", RPCReceive::message, "{", true, 3, 6},
      {"too long, for ever", RPCReceive::tooLong, "", true, 3, 6},
      {"never reads", RPCReceive::message, good, false, 1, 1},
      {"good, for ever", RPCReceive::message, good, true, 60, 63},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    transport.result = c.result;
    transport.text = c.text;
    transport.takes = c.takes;
    transport.dropped = 0;
    ++transport.number;
    EXPECT_THAT(secondsUntilDropped(), testing::AllOf(testing::Ge(c.least), testing::Le(c.most)));
  }
  transport.result = RPCReceive::nothing;
  transport.peer = false;
  transport.dropped = 0;
  ++transport.number;
  EXPECT_EQ(secondsUntilDropped(), 200) << "nobody is there";
}

TEST_F(RPCServerRules, aPeerIsLetGoForItsOwnFaultAlone) {
  server.add("slow", RPCServer::Access::everyone,
             [this](const RPCRequest&, RPCResponse&) { clock.advance(11000); });
  transport.result = RPCReceive::message;
  transport.text = R"({"jsonrpc":"2.0","id":1,"name":"slow"})";
  server.cycle();
  transport.result = RPCReceive::nothing;
  server.cycle();
  EXPECT_EQ(transport.dropped, 0) << "whose answer took long was not silent";
  clock.advance(10001);
  server.cycle();
  EXPECT_EQ(transport.dropped, 1);

  // While its answer was sent it went, and the next one came.
  struct Gone : ScriptedTransport {
    bool send(const std::string&) override {
      ++number;
      return false;
    }
  } gone;
  RPCServer other(gone, clock);
  addMethods(other);
  gone.result = RPCReceive::message;
  gone.text = R"({"jsonrpc":"2.0","id":1,"name":"echo"})";
  other.cycle();
  EXPECT_EQ(gone.dropped, 0);
}

TEST_F(RPCServerRules, whatChangesSomethingIsForAdministrators) {
  struct Keeping : ScriptedTransport {
    bool send(const std::string& message) override {
      answer = message;
      return true;
    }
    std::string answer;
  } keeping;
  RPCServer strict(keeping, clock);
  addMethods(strict);
  keeping.administrator = false;
  keeping.result = RPCReceive::message;
  keeping.text = R"({"jsonrpc":"2.0","id":1,"name":"set"})";
  strict.cycle();
  EXPECT_EQ(keeping.answer,
            R"({"jsonrpc":"2.0","id":"1","error":{"code":"-32010","message":"Server error"}})");
  keeping.text = R"({"jsonrpc":"2.0","id":1,"name":"number","params":{"n":1}})";
  strict.cycle();
  EXPECT_THAT(keeping.answer, HasSubstr("result"));
}

}  // namespace
}  // namespace korvane
