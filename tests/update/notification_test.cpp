#include <gmock/gmock.h>

#include <thread>

#include "config/settings.h"
#include "platform/native.h"
#include "tests/update/cycles.h"
#include "tests/update/scripted_sockets.h"
#include "update/notification_listener.h"

namespace korvane {
namespace {

using platform::kWsaConnectionReset;
using platform::kWsaWouldBlock;
using tests::countRequests;
using tests::OtherSockets;
using tests::ScriptedSockets;
using tests::SimulatedMachine;

constexpr char kListening[] =
    "agent.id=known\n[TCP]\ntcp.enabled=true\ntcp.port=2222\n[Polling]\npolling.interval=60\n";

AgentConfig& config() {
  return *AgentConfig::getInstance();
}

struct ScriptedPort {
  SimulatedMachine machine{{.settings = kListening}};
  ScriptedSockets sockets{machine.fake.sockets};
  StopToken stop;
  NotificationListener listener{stop, sockets, settingsOf(config()).updates};
};

TEST(Notification, WaitsForTheByteWithinTheBudgetOfTheCountdown) {
  struct ClientCase {
    const char* name;
    ScriptedSockets::Client client;
    int32_t countdown;
    int byte;  // -1: none
    int waits;
    int32_t countdownAfter;
  };
  const ScriptedSockets::Receive silent{kWsaWouldBlock, 0}, reset{kWsaConnectionReset, 0},
      closed{0, -1}, one{0, 1};
  const ClientCase cases[] = {
      {"at once", {one}, 60, 1, 0, 60},
      {"after three seconds", {silent, silent, silent, one}, 60, 1, 3, 57},
      {"never, far from the next status", {silent}, 60, -1, 30, 30},
      {"never, close to it", {silent}, 7, -1, 7, 0},
      {"never, with the status due", {silent}, 0, -1, 1, 0},
      {"never, polling disabled", {silent}, -1, -1, 1, -1},
      {"late, polling disabled", {silent, one}, -1, 1, 1, -1},
      {"broken at once", {reset}, 60, -1, 0, 60},
      {"broken after a silence", {silent, reset}, 60, -1, 1, 30},
      {"broken for a while", {silent, reset, reset, one}, 60, 1, 1, 57},
      {"closed without a byte", {closed}, 60, -1, 0, 60},
      {"closed after a silence", {silent, closed}, 60, -1, 1, 59},
  };
  for (const ClientCase& row : cases) {
    ScriptedPort port;
    port.sockets.clients.push_back(row.client);
    int32_t countdown = row.countdown;
    const auto outcome = port.listener.poll(countdown);
    EXPECT_TRUE(outcome.connected) << row.name;
    EXPECT_EQ(outcome.byte ? *outcome.byte : -1, row.byte) << row.name;
    EXPECT_EQ(port.sockets.waits, row.waits) << row.name;
    EXPECT_EQ(countdown, row.countdownAfter) << row.name;
    EXPECT_EQ(port.sockets.open, 1) << row.name;
  }
}

TEST(Notification, ReportsAPortThatCannotBeListenedOnOnceUntilItsSettingsChange) {
  struct FailureCase {
    int ScriptedSockets::*error;
    const char* event;
    int32_t port;
  };
  for (const FailureCase& row : {FailureCase{&ScriptedSockets::createError, ",10228,", 2222},
                                 {&ScriptedSockets::bindError, ",10229,", 2222},
                                 {&ScriptedSockets::listenError, ",10230,", 2222},
                                 {nullptr, ",10229,", 70000},
                                 {nullptr, ",10229,", 0}}) {
    ScriptedPort port;
    config().setTCPNotificationPort(row.port);
    if (row.error) port.sockets.*row.error = platform::kWsaAddressInUse;
    int32_t countdown = 60;
    for (int i = 0; i < 5; ++i) {
      const auto outcome = port.listener.poll(countdown);
      EXPECT_FALSE(outcome.connected || outcome.waited) << row.event;
    }
    EXPECT_EQ(port.machine.countLines(row.event), 1U) << row.event;
    config().setTCPNotificationsEnabled(false);
    port.listener.poll(countdown);
    config().setTCPNotificationsEnabled(true);
    port.listener.poll(countdown);
    EXPECT_EQ(port.machine.countLines(row.event), 2U) << "switched off and on";
    if (row.error) port.sockets.*row.error = 0;
    config().setTCPNotificationPort(2223);
    EXPECT_TRUE(port.listener.poll(countdown).waited) << row.event;
    EXPECT_EQ(port.sockets.open, 1);
    config().setTCPNotificationsEnabled(false);
    port.listener.poll(countdown);
    EXPECT_EQ(port.sockets.open, 0);
  }
}

TEST(Notification, LeavesTheCycleItsPauseWhenAConnectionCannotBeAccepted) {
  ScriptedPort port;
  port.sockets.clients.resize(1);
  port.sockets.acceptError = platform::kWsaTooManySockets;
  int32_t countdown = 60;
  const auto outcome = port.listener.poll(countdown);
  EXPECT_FALSE(outcome.connected || outcome.waited);
  port.sockets.clientsVanish = true;
  EXPECT_FALSE(port.listener.poll(countdown).connected);
  EXPECT_EQ(port.sockets.blockedAccepts, 0) << "nor holds the thread one that is gone again";
}

// The thread itself, with clients on simulated time.
struct RunningThread {
  explicit RunningThread(const std::string& settings = kListening)
      : machine({.settings = settings}) {
    thread = new UpdateThread(nullptr);
    thread->start();
    machine.sim.runFor(2500);
  }
  ~RunningThread() { end(); }
  void end() {
    if (!thread) return;
    thread->stop();
    thread->waitEnded(platform::kInfinite);
    Thread::dispose(thread);
    thread = nullptr;
  }
  std::unique_ptr<platform::Socket> connect() {
    std::unique_ptr<platform::Socket> client;
    machine.fake.sockets.createTcp(client);
    EXPECT_EQ(client->connect("127.0.0.1", 2222, 1000), 0);
    return client;
  }
  void notify(char byte) {
    size_t sent = 0;
    const auto client = connect();
    client->send(&byte, 1, sent);
  }
  size_t statuses() { return countRequests(machine.server, "result", "agent.osversion="); }
  SimulatedMachine machine;
  UpdateThread* thread = nullptr;
};

TEST(Notification, SilentClientsDelayNoStatus) {
  RunningThread running;
  std::vector<std::unique_ptr<platform::Socket>> silent;
  for (int i = 0; i < 10; ++i) silent.push_back(running.connect());
  running.machine.sim.runFor(int64_t{10} * 61 * 1000);
  EXPECT_GE(running.statuses(), 10U);
}

TEST(Notification, AStopEndsTheWaitForASilentClientAtOnce) {
  for (const bool wholeAgent : {false, true}) {
    RunningThread running;
    const auto silent = running.connect();
    running.machine.sim.runFor(1500);
    const int64_t before = running.machine.now();
    if (wholeAgent) {
      shutdownToken().request();
      running.machine.sim.runFor(1);
      EXPECT_EQ(running.machine.countLines("Failed to read notification message"), 1U);
    }
    running.end();
    EXPECT_LE(running.machine.now() - before, wholeAgent ? 1 : 0);
  }
}

// Notifications, garbage, closed and silent connections in a burst over loopback; what the thread
// takes is up to the system's queue of connections.
TEST(Notification, TakesABurstOverTheSystemsSockets) {
  SimulatedMachine machine{{.settings = kListening}};
  const auto sockets = platform::makeNativeSockets();
  ASSERT_EQ(sockets->startup(), 0);
  {
    OtherSockets current(*sockets);
    std::unique_ptr<platform::Socket> probe;
    ASSERT_EQ(sockets->createTcp(probe), 0);
    ASSERT_EQ(probe->bind(true, 0), 0);
    const uint16_t port = probe->localPort();
    probe.reset();
    config().setTCPNotificationPort(port);
    config().setPollingEnabled(false);

    UpdateThread thread(nullptr);
    thread.cycle();
    constexpr int kConnections = 1000;
    constexpr uint32_t kConnectMs = 10;  // a full queue drops who comes then
    std::atomic<size_t> valid{0};
    std::atomic<bool> sent{false};
    std::thread clients([&] {
      for (int i = 0; i < kConnections; ++i) {
        std::unique_ptr<platform::Socket> client;
        if (sockets->createTcp(client) != 0) continue;
        if (client->connect("127.0.0.1", port, kConnectMs) != 0) continue;
        size_t bytes = 0;
        const char byte = static_cast<char>(i % 4 == 0 ? 0x02 : 0xC0 + i % 64);
        if (i % 4 == 3) continue;
        if (client->send(&byte, 1, bytes) == 0 && i % 4 == 0) ++valid;
      }
      sent = true;
    });
    const auto taken = [&] { return machine.countLines("recv() returned"); };
    while (!sent) thread.cycle();
    clients.join();
    for (size_t before = 0; before != taken(); thread.cycle()) before = taken();
    const size_t accepted = machine.countLines("Notification type received : 2");
    EXPECT_GT(accepted, 0U);
    EXPECT_LE(accepted, valid);
    EXPECT_EQ(machine.countLines("Notification type received"), accepted);
  }
  sockets->cleanup();
}

}  // namespace
}  // namespace korvane
