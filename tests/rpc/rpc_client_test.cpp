// The client against a live server, a server that lets it go, and none.
#include "rpc/rpc_client.h"

#include <gmock/gmock.h>

#include "platform/error_codes.h"
#include "rpc/rpc_named_pipe.h"
#include "rpc/rpc_server.h"
#include "tests/rpc/pipe_worlds.h"
#include "tests/support/watchdog.h"

namespace korvane {
namespace {

using namespace platform;
using testing::HasSubstr;
using tests::kLongMs;

// Answers, after it has let its first clients go without an answer.
class ForgetfulServer {
 public:
  ForgetfulServer(Threading& threading, Pipes& pipes, Clock& clock, const std::string& name,
                  int deaf)
      : _fifo(pipes, clock, name), _deaf(deaf) {
    _fifo.create();
    _thread = threading.createThread(0, [this] { serve(); });
  }
  ~ForgetfulServer() {
    _ended = true;
    _fifo.interrupt();
    const tests::Wait wait("the server's thread");
    _thread->join(kInfinite);
  }

 private:
  void serve() {
    for (std::string text; !_ended;) {
      if (!_fifo.readMessage(text, 1000, kLongMs)) continue;
      if (_deaf-- > 0) {
        _fifo.close();
        _fifo.create();
        continue;
      }
      JsonTree tree;
      RPCRequest request;
      RPCResponse response;
      if (parseJson(text, tree)) request.SetPtree(tree);
      response.id = *request.id + (request.name == "other" ? 1 : 0);
      if (request.name == "fail") {
        response.error = kRpcInvalidParams;
        response.detail = "the key x";
      }
      const int piece = request.params.get("piece", 0);
      response.result.put("snapshot", "7");
      response.appdata = "part" + std::to_string(piece) + request.params.get("snapshot", "");
      response.moredata = piece < 2;
      _fifo.writeMessage(writeJson(response.ptree()), kLongMs);
    }
  }

  Fifo _fifo;
  int _deaf;
  std::atomic<bool> _ended{false};
  std::unique_ptr<NativeThread> _thread;
};

template <class World>
class RPCClientOnPipes : public testing::Test {
 protected:
  World world;
  std::unique_ptr<Clock> clock = makeNativeClock();
  std::unique_ptr<Threading> threading = makeNativeThreading();
  const std::string name = tests::uniquePipeName();
  RPCClient client{world.pipes, *clock, name};

  uint32_t unreachable(const char* method, int timeoutMs) {
    try {
      client.call(method, {}, timeoutMs);
    } catch (const RPCUnreachable& error) {
      EXPECT_THAT(error.what(), HasSubstr(name));
      return error.code();
    }
    return kOk;
  }
};

TYPED_TEST_SUITE(RPCClientOnPipes, tests::PipeWorlds);

TYPED_TEST(RPCClientOnPipes, anAnswerComesAlsoFromAServerThatLetTheClientGo) {
  ForgetfulServer serving(*this->threading, this->world.pipes, *this->clock, this->name,
                          /*deaf=*/2);
  EXPECT_EQ(this->client.callAll("pieces", {}, kLongMs), "part0part17part27");
  try {
    this->client.call("fail", {}, kLongMs);
    ADD_FAILURE() << "an error answer";
  } catch (const RPCCallError& error) {
    EXPECT_STREQ(error.what(), "fail failed: -32602 Invalid params (the key x)");
  }
  EXPECT_EQ(this->unreachable("other", 200), RPCClient::kTimeout);
  EXPECT_EQ(this->client.call("again", {}, kLongMs).appdata, "part0");
}

TYPED_TEST(RPCClientOnPipes, withoutAServerTheCallSaysSo) {
  EXPECT_EQ(this->unreachable("any", 100), kErrorFileNotFound);
  EXPECT_THROW(this->client.call("any", {}, kLongMs), RPCUnreachable);
}

}  // namespace
}  // namespace korvane
