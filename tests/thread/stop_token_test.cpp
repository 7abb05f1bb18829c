#include "agent/thread/stop_token.h"

#include <atomic>

#include "tests/thread/faulty_threading.h"
#include "tests/thread/function_thread.h"

namespace korvane::testing {
namespace {

TEST(StopToken, RequestEndsASleepUntilReset) {
  StopToken token;
  EXPECT_FALSE(token.sleepFor(1));
  std::atomic<bool> cut{false};
  FunctionThread sleeper([&](FunctionThread&) { cut = token.sleepFor(platform::kInfinite); });
  sleeper.start();
  token.request();
  ASSERT_TRUE(ends(sleeper));
  EXPECT_TRUE(cut);
  EXPECT_TRUE(token.sleepFor(platform::kInfinite));
  token.reset();
  EXPECT_FALSE(token.requested());
  EXPECT_FALSE(token.sleepFor(1));
}

TEST(StopToken, CallbackRunsOncePerRequestWhileRegistered) {
  StopToken token;
  int early = 0, late = 0;
  StopCallback first(token, [&] { ++early; });
  {
    StopCallback gone(token, [&] { early += 100; });
  }
  token.request();
  token.request();
  EXPECT_EQ(early, 1);
  StopCallback second(token, [&] { ++late; });
  EXPECT_EQ(late, 1);
  token.reset();
  EXPECT_EQ(late, 1);
  token.request();
  EXPECT_EQ(early, 2);
  EXPECT_EQ(late, 2);
}

TEST(StopToken, ACallbackThatThrowsKeepsNobodyFromBeingTold) {
  StopToken token;
  int told = 0;
  const auto fault = [&] {
    ++told;
    throw std::bad_alloc();
  };
  StopCallback first(token, fault);
  StopCallback second(token, fault);
  token.request();
  EXPECT_EQ(told, 2);
  StopCallback late(token, fault);
  EXPECT_EQ(told, 3);
}

// What a callback uses lives as long as the registration: the end of one waits for the callback's
// end, and every registration is told of a stop that came at any time.
TEST(StopToken, RegistrationsComeAndGoWhileStopsAreRequested) {
  StopToken token;
  std::atomic<bool> done{false};
  FunctionThread stopper([&](FunctionThread&) {
    while (!done) {
      token.request();
      token.reset();
    }
  });
  stopper.start();
  for (int i = 0; i < 2000; ++i) {
    auto used = std::make_unique<int>(0);
    StopCallback callback(token, [&] { ++*used; });
  }
  done = true;
  ASSERT_TRUE(ends(stopper));
}

TEST(StopToken, SleepersNeverMissARequest) {
  for (int i = 0; i < 100; ++i) {
    StopToken token;
    FunctionThread sleeper([&](FunctionThread&) { token.sleepFor(platform::kInfinite); });
    sleeper.start();
    token.request();
    ASSERT_TRUE(ends(sleeper));
  }
}

TEST(StopToken, EachRunHasItsOwnMadeOfItsPlatform) {
  FaultyPlatform platform;
  EXPECT_FALSE(shutdownToken().sleepFor(1));
  shutdownToken().request();
  SharedFaults inner;
  {
    FaultyPlatform another;
    inner = another.faults;
    EXPECT_FALSE(shutdownToken().sleepFor(1));
    EXPECT_EQ(Thread::current(), nullptr);
    EXPECT_GE(inner->mutexesMade, 1);
  }
  EXPECT_TRUE(shutdownToken().sleepFor(platform::kInfinite));
  EXPECT_EQ(inner->usedWhenGone, 0);
}

}  // namespace
}  // namespace korvane::testing
