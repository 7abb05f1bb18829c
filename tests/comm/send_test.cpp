// The steps of a send: identity, fail-back, fail-over, TLS fallback, status check, name look-ups.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/comm/comm_fixture.h"

namespace korvane {
namespace {

using tests::CommFixture;
using tests::ScriptedTransport;

class Send : public CommFixture {
 protected:
  Send() : transport(script()) {
    config().setServerList("10.1.1.1,10.1.1.2,10.1.1.3");
    currentConnection().setLocalAddressSource([this](std::vector<STRING>& out) {
      out = localAddresses;
      return !out.empty();
    });
  }
  // One exchange by a fresh handler, as the agent's threads make them.
  int poll() { return HttpsHandler().getUpdate(1, false); }
  std::vector<std::string> urls() const {
    std::vector<std::string> all;
    for (const auto& seen : transport.seen) all.push_back(seen.url);
    return all;
  }
  static std::string current() { return config().getServerCurrent().toUtf8(); }
  static std::string at(const std::string& host, const std::string& word) {
    return "https://" + host + ":8443/agent/" + word;
  }

  ScriptedTransport& transport;
  std::vector<STRING> localAddresses{"192.168.1.5"};
  NameLookups::StartThread startThread = [this](std::function<void()> body) {
    return threading.createThread(0, std::move(body)) != nullptr;
  };
  NameLookups lookUps{{resolver, threading, shutdownToken(), startThread}};
};

TEST_F(Send, StatusCheck) {
  const struct {
    ScriptedTransport::Step step;
    int returns;
    int lastError;
    const char* event;
    const char* text;
  } cases[] = {
      {{.code = 7}, 7, 7, ",10223,", "AGENT COULDNT CONNECT. Verify server IP,port and server is"},
      {{.code = -1, .errorText = "CURLOPT_URL: no"}, -1, 7, ",10221,", "CURLOPT_URL: no"},
      {{.status = 503, .body = "<html>"}, 503, 7, ",10222,", "Return status 503"},
      {{.status = 400}, 400, 7, ",10222,", "Verify using Agent port versus Console port."},
      {{.headers = {"Korvane-Error: 300"}}, 0, 0, ",10219,", "10.1.1."},
      {{.status = 201}, 201, 0, ",10222,", "Return status 201"},
      {{.body = "Data-Format=text/plain\n"}, 56, 56, ",10510,", "the body ends among its header"},
      {{.body = ""}, 0, 0, ",10219,", ""},
      {{.code = 18, .body = "x", .errorText = "12 bytes missing", .broken = true},
       56,
       56,
       ",10510,",
       "12 bytes missing"},
      {{.code = 42, .body = std::string((64 << 20) + 1, 'x')},
       56,
       56,
       ",10510,",
       "a body of more than"},
      {{.status = 0, .body = properties("agent.id=7\n")}, 56, 56, ",10510,", "no HTTP status"},
      {{.code = 100}, 100, 100, ",10223,", "Could not understand the error 100"},
  };
  for (const auto& test : cases) {
    const int before = logged(test.event);
    transport.steps.push_back(test.step);
    EXPECT_EQ(poll(), test.returns);
    EXPECT_EQ(HttpsHandler::getLastError(), test.lastError) << test.text;
    EXPECT_EQ(logged(test.event), before + 1) << test.text;
    EXPECT_GE(logged(test.text), 1) << test.text;
  }
}

TEST_F(Send, FailOverLooksAtAddressesFirst) {
  localAddresses.clear();
  config().setServerList("moving,unknown,steady");
  transport.steps.assign(2, {.code = 28});
  // The name leads elsewhere now: the same server is retried over a new handle.
  EXPECT_EQ(poll(), 28);
  EXPECT_EQ(current(), "moving");
  EXPECT_EQ(transport.closed, 1);
  EXPECT_EQ(logged(",10201,"), 1);
  config().setServerCurrent("unknown");
  config().setServerNext("unknown");
  EXPECT_EQ(poll(), 28);
  EXPECT_EQ(current(), "steady");
  // A handler of another server than the current one moves nothing.
  for (const char* other : {"moving", "10.1.1.9"}) {
    transport.steps.push_back({.code = 28});
    EXPECT_EQ(HttpsHandler(other).getUpdate(1, false), 28);
    EXPECT_EQ(current(), "steady");
  }
  // A name that has lost its address has not moved.
  config().setServerList("leaving,steady");
  transport.steps.push_back({.code = 28});
  EXPECT_EQ(poll(), 28);
  EXPECT_EQ(current(), "steady");
}

TEST_F(Send, SomeFailuresDoNotFailOver) {
  transport.steps = {{.code = 7}, {.code = 7}, {.code = 7}, {.code = -1}, {.status = 500}};
  HttpsHandler handler;
  EXPECT_EQ(handler.testConnection(true), 7);
  EXPECT_EQ(handler.sendFile(write("f", "1")), 7);
  EXPECT_EQ(handler.getUpdate(1, false), -1);
  EXPECT_EQ(handler.getUpdate(1, false), 500);
  EXPECT_EQ(current(), "10.1.1.1");
  EXPECT_EQ(logged(",10201,") + logged(",10202,"), 0);
}

TEST_F(Send, FailBackAfterItsInterval) {
  config().setFailbackInterval(100);
  transport.steps.push_back({.code = 7});
  poll();
  ASSERT_EQ(current(), "10.1.1.2");
  transport.seen.clear();

  clock.advance(99'000);
  poll();
  EXPECT_EQ(urls(), std::vector<std::string>{at("10.1.1.2", "update")});
  // Not reached: it stays where it is, and asks again only after the next interval.
  transport.seen.clear();
  transport.steps = {{.code = 7}, {.code = 7}};
  clock.advance(1'000);
  poll();
  poll();
  EXPECT_EQ(urls(), (std::vector<std::string>{at("10.1.1.1", "testConnection"),
                                              at("10.1.1.1", "testConnection"),
                                              at("10.1.1.2", "update"), at("10.1.1.2", "update")}));
  EXPECT_EQ(logged("Could not connect to the primary server"), 1);
  // Neither connection tests nor bulk logs ask.
  transport.seen.clear();
  clock.advance(100'000);
  HttpsHandler handler;
  handler.testConnection(false);
  handler.sendFile(write("f", "1"));
  EXPECT_EQ(transport.seen.size(), 2u);
  EXPECT_EQ(handler.getUpdate(1, false), 0);
  EXPECT_EQ(urls()[2], at("10.1.1.1", "testConnection"));
  EXPECT_EQ(urls()[3], at("10.1.1.1", "update"));
  EXPECT_EQ(logged("Connection to primary server successful"), 1);
  EXPECT_EQ(current(), "10.1.1.1");
  EXPECT_EQ(config().getServerNext(), STRING("10.1.1.2"));
  EXPECT_EQ(logged(",10169,"), 1);  // the check's own test, coming from 10.1.1.2
}

TEST_F(Send, FailBackClockThatWentBackCountsAsNotPassed) {
  config().setServerCurrent("10.1.1.2");
  config().setFailbackInterval(0);
  clock.advance(-1'000);
  poll();
  EXPECT_EQ(urls(), std::vector<std::string>{at("10.1.1.2", "update")});
  clock.advance(1'000);
  poll();
  EXPECT_EQ(transport.seen.size(), 3u);
}

TEST_F(Send, TlsFallbackStays) {
  transport.steps = {{.code = kCurlAbortedByCallback}};
  EXPECT_EQ(HttpsHandler().testConnection(true), kCurlAbortedByCallback);
  EXPECT_EQ(currentConnection().lowestTls(), 6) << "a stop says nothing about TLS";
  transport.seen.clear();
  transport.steps = {{.code = 35}, {}, {.code = 35}};
  EXPECT_EQ(HttpsHandler().testConnection(true), 0);
  EXPECT_EQ(logged(",10223,"), 2);
  EXPECT_EQ(HttpsHandler().testConnection(true), 35);
  poll();
  ASSERT_EQ(transport.seen.size(), 4u);
  EXPECT_EQ(transport.seen[0].sslVersion, 6);
  for (size_t i = 1; i < 4; ++i) EXPECT_EQ(transport.seen[i].sslVersion, 1) << i;
  // A lowest version that is set counts from the next exchange on, and there is no fall-back.
  transport.seen.clear();
  config().setValue("ssl.minimum.version", "1.3");
  transport.steps = {{.code = 35}, {.code = 35}};
  EXPECT_EQ(HttpsHandler().testConnection(true), 35);
  ASSERT_EQ(transport.seen.size(), 1u);
  EXPECT_EQ(transport.seen[0].sslVersion, 7);
}

TEST_F(Send, AMinimumVersionEndsTheFallbackBeforeItBegan) {
  config().setValue("ssl.minimum.version", "1.2");
  transport.steps = {{.code = 35}, {.code = 35}};
  EXPECT_EQ(HttpsHandler().testConnection(true), 35);
  EXPECT_EQ(transport.seen.size(), 1u);
  EXPECT_EQ(currentConnection().lowestTls(), 6);
}

TEST_F(Send, AnotherAgentsConnectionLeavesThisOnesAlone) {
  StopToken stop;
  platform::Platform& parts = system();
  ServerConnection other({settingsOf(config()), clock, parts.files, resolver, parts.systemInfo,
                          threading, stop, startThread, [] { return nullptr; },
                          [] { return false; }});
  auto scripted = std::make_unique<ScriptedTransport>();
  scripted->steps = {{.code = 35}, {.code = 35}, {.code = 28, .errorText = "late"}};
  const std::vector<ScriptedTransport::Seen>& seen = scripted->seen;
  other.setTransport(std::move(scripted));
  HttpsHandler handler(other, "10.9.9.9");
  shutdownToken().request();
  EXPECT_EQ(handler.testConnection(true), 35);
  EXPECT_EQ(handler.getUpdate(1, false), 28);
  EXPECT_EQ(seen.size(), 3u);
  EXPECT_EQ(seen.back().url, at("10.9.9.9", "update"));
  EXPECT_EQ(handler.lastResult().errorText, "late");
  EXPECT_EQ(handler.lastResult().failure.stage, ConnectionStage::nameLookUp);
  EXPECT_EQ(other.lowestTls(), 1);
  EXPECT_EQ(other.record().transferError(), 28);
  EXPECT_EQ(other.record().last().lastFailure.text, handler.lastResult().failure.text());

  EXPECT_TRUE(transport.seen.empty());
  EXPECT_EQ(currentConnection().lowestTls(), 6);
  EXPECT_EQ(HttpsHandler::getLastError(), 0);
  EXPECT_EQ(currentConnection().record().last().wallMs, 0);
  stop.request();
  EXPECT_EQ(handler.getUpdate(1, false), 42);
}

TEST_F(Send, StoppedAgentSendsNothing) {
  shutdownToken().request();
  EXPECT_EQ(poll(), 42);
  EXPECT_EQ(HttpsHandler().testConnection(false), 42);
  EXPECT_TRUE(transport.seen.empty());
  EXPECT_EQ(current(), "10.1.1.1");
}

TEST_F(Send, HangingLookUpIsLeftBehind) {
  const auto begin = std::chrono::steady_clock::now();
  STRING address("none");
  std::thread asking([&] { address = lookUps.address("hang", 20000); });
  EXPECT_EQ(resolver.asked->wait(20000), platform::WaitResult::signalled);
  const auto asked = std::chrono::steady_clock::now();
  shutdownToken().request();
  asking.join();
  EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(2));
  EXPECT_EQ(address, STRING());
  EXPECT_EQ(lookUps.outstanding(), 1u);
  shutdownToken().reset();
  // The next one waits for the look-up that is on its way, no longer than it may.
  EXPECT_EQ(lookUps.address("hang", 50), "");
  EXPECT_EQ(lookUps.outstanding(), 1u);
  resolver.release();
  EXPECT_EQ(lookUps.address("hang", 20000), "");
  EXPECT_EQ(lookUps.address("steady", 20000), "10.0.1.1");
  EXPECT_EQ(lookUps.outstanding(), 0u);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(60));
}

TEST_F(Send, LookUpsOfAddressesAskNobody) {
  for (const char* dotted : {"0.0.0.0", "10.1.1.1", "255.255.255.255"})
    EXPECT_EQ(lookUps.address(dotted, 1000), dotted);
  for (const char* name : {"10.1.1", "10.1.1.256", "10.1.1.1.", "1.2.3.4.5", "a.1.1.1", ""})
    EXPECT_EQ(lookUps.address(name, 20000), "") << name;
}

TEST_F(Send, ALookUpWithoutAThreadIsForgotten) {
  threading.refuses = true;
  EXPECT_EQ(lookUps.address("steady", 20000), "");
  EXPECT_EQ(lookUps.outstanding(), 0u);
  threading.refuses = false;
  EXPECT_EQ(lookUps.address("steady", 20000), "10.0.1.1");
}

}  // namespace
}  // namespace korvane
