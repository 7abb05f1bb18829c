// What every Sockets must do: the system's own over loopback, and the network in memory.
#include <gmock/gmock.h>

#include "platform/error_codes.h"
#include "platform/fake/fake_sockets.h"
#include "platform/native.h"
#include "tests/platform/patience.h"

namespace korvane::platform {
namespace {

struct NativeSocketsWorld {
  std::unique_ptr<Sockets> owned = makeNativeSockets();
  Sockets& sockets = *owned;
  std::unique_ptr<Threading> threading = makeNativeThreading();
};

struct FakeSocketsWorld {
  std::unique_ptr<Threading> threading = makeNativeThreading();
  FakeSockets sockets{*threading};
};

template <class World>
class SocketsConformance : public testing::Test {
 protected:
  World world;
  Sockets& sockets = world.sockets;
  std::unique_ptr<Socket> listener, client, server;

  std::unique_ptr<Socket> make() {
    std::unique_ptr<Socket> socket;
    EXPECT_EQ(sockets.createTcp(socket), 0);
    return socket;
  }

  void listen() {
    listener = make();
    ASSERT_EQ(listener->bind(false, 0), 0);
    ASSERT_EQ(listener->listen(5), 0);
    ASSERT_NE(listener->localPort(), 0);
  }

  void connect() {
    listen();
    client = make();
    ASSERT_EQ(client->connect("127.0.0.1", listener->localPort(), kLongMs), 0);
    int error = 0;
    ASSERT_EQ(listener->waitReadable(kLongMs, error), SocketWait::ready);
    ASSERT_EQ(listener->accept(server), 0);
  }

  void SetUp() override { ASSERT_EQ(sockets.startup(), 0); }
  void TearDown() override {
    for (auto* socket : {&listener, &client, &server}) socket->reset();
    sockets.cleanup();
  }
};

using SocketsWorlds = testing::Types<NativeSocketsWorld, FakeSocketsWorld>;
TYPED_TEST_SUITE(SocketsConformance, SocketsWorlds);

TYPED_TEST(SocketsConformance, bytesArriveAndTheEndIsSeen) {
  this->connect();
  size_t moved = 0;
  int error = 0;
  EXPECT_EQ(this->server->waitReadable(0, error), SocketWait::timedOut);
  ASSERT_EQ(this->client->send("hello", 5, moved), 0);
  EXPECT_EQ(moved, 5u);
  ASSERT_EQ(this->server->waitReadable(kLongMs, error), SocketWait::ready);
  char buffer[16];
  ASSERT_EQ(this->server->receive(buffer, sizeof buffer, moved), 0);
  EXPECT_EQ(std::string(buffer, moved), "hello");
  ASSERT_EQ(this->server->send("x", 1, moved), 0);
  ASSERT_EQ(this->client->receive(buffer, sizeof buffer, moved), 0) << "blocks until it is there";
  EXPECT_EQ(moved, 1u);
  this->client.reset();
  ASSERT_EQ(this->server->waitReadable(kLongMs, error), SocketWait::ready);
  ASSERT_EQ(this->server->receive(buffer, sizeof buffer, moved), 0);
  EXPECT_EQ(moved, 0u);
}

TYPED_TEST(SocketsConformance, nonBlockingCallsSayThatNothingIsThere) {
  this->connect();
  std::unique_ptr<Socket> none;
  char byte;
  size_t got = 7;
  ASSERT_EQ(this->listener->setNonBlocking(true), 0);
  ASSERT_EQ(this->server->setNonBlocking(true), 0);
  EXPECT_EQ(this->listener->accept(none), kWsaWouldBlock);
  EXPECT_EQ(this->server->receive(&byte, 1, got), kWsaWouldBlock);
  EXPECT_EQ(got, 0u);
  int error = 0;
  EXPECT_EQ(this->server->waitReadable(20, error), SocketWait::timedOut);
}

TYPED_TEST(SocketsConformance, refusalsHaveTheirNumbers) {
  this->listen();
  const uint16_t port = this->listener->localPort();
  auto second = this->make();
  EXPECT_EQ(second->bind(false, port), kWsaAddressInUse);
  EXPECT_EQ(second->connect("no address", port, kLongMs), kWsaInvalidArgument);
  this->listener.reset();
  auto caller = this->make();
  EXPECT_EQ(caller->connect("127.0.0.1", port, kLongMs), kWsaConnectionRefused);
  size_t sent = 0;
  EXPECT_NE(caller->send("x", 1, sent), 0);

  auto again = this->make();
  EXPECT_EQ(again->bind(false, port), 0) << "a listener comes back at once";
  EXPECT_EQ(again->listen(1), 0);
}

TYPED_TEST(SocketsConformance, interruptEndsAWaitAndEveryLaterOne) {
  this->listen();
  const auto waiting = this->world.threading->createEvent(true, false);
  SocketWait outcome = SocketWait::ready;
  const auto waiter = this->world.threading->createThread(0, [&] {
    int error = 0;
    waiting->set();
    outcome = this->listener->waitReadable(kInfinite, error);
  });
  waiting->wait(kLongMs);
  this->listener->interrupt();
  ASSERT_EQ(waiter->join(kLongMs), WaitResult::signalled);
  EXPECT_EQ(outcome, SocketWait::interrupted);
  int error = 0;
  EXPECT_EQ(this->listener->waitReadable(kLongMs, error), SocketWait::interrupted);
  auto caller = this->make();
  caller->interrupt();
  EXPECT_EQ(caller->connect("127.0.0.1", this->listener->localPort(), kLongMs), kWsaInterrupted);
}

TYPED_TEST(SocketsConformance, shutdownWakesAWaiter) {
  this->connect();
  size_t got = 7;
  char byte;
  const auto reader =
      this->world.threading->createThread(0, [&] { this->server->receive(&byte, 1, got); });
  EXPECT_EQ(this->client->shutdownBoth(), 0);
  ASSERT_EQ(reader->join(kLongMs), WaitResult::signalled);
  EXPECT_EQ(got, 0u);
}

TYPED_TEST(SocketsConformance, namesResolveAndDottedAddressesAreThemselves) {
  std::vector<std::string> addresses;
  ASSERT_EQ(this->sockets.resolve("192.0.2.7", addresses), 0);
  EXPECT_THAT(addresses, testing::ElementsAre("192.0.2.7"));
  ASSERT_EQ(this->sockets.resolve("localhost", addresses), 0);
  EXPECT_THAT(addresses, testing::Contains("127.0.0.1"));
  EXPECT_NE(this->sockets.resolve("no such host.invalid", addresses), 0);
  EXPECT_TRUE(addresses.empty());
}

}  // namespace
}  // namespace korvane::platform
