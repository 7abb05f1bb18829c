#include <atomic>
#include <memory>
#include <vector>

#include "agent/thread/thread_condition.h"
#include "tests/thread/faulty_threading.h"
#include "tests/thread/function_thread.h"

namespace korvane::testing {
namespace {

using Threads = std::vector<std::unique_ptr<FunctionThread>>;

Threads startThreads(int count, const std::function<void(int)>& body) {
  Threads threads;
  for (int i = 0; i < count; ++i)
    threads.push_back(std::make_unique<FunctionThread>([body, i](FunctionThread&) { body(i); }));
  for (auto& thread : threads) thread->start();
  return threads;
}

TEST(ThreadCondition, BroadcastWakesEveryWaiterAndOnlyThem) {
  RecursiveMutex mutex;
  ThreadCondition condition(mutex);
  int waiting = 0, woken = 0;
  auto threads = startThreads(5, [&](int) {
    Synchronized hold(mutex);
    ++waiting;
    if (condition.wait()) ++woken;
  });
  ASSERT_TRUE(eventually([&] {
    Synchronized hold(mutex);
    return waiting == 5;
  }));
  condition.broadcast();
  for (auto& thread : threads) ASSERT_TRUE(ends(*thread));
  EXPECT_EQ(woken, 5);
  condition.broadcast();
  Synchronized hold(mutex);
  EXPECT_FALSE(condition.wait(1)) << "a broadcast without waiters must not be kept";
}

// The time runs out between the broadcast's count and the waiter's last look: the broadcaster must
// not wait forever, and no unit may be left for somebody who waits later.
TEST(ThreadCondition, WaiterThatTimesOutDuringABroadcastIsPartOfIt) {
  FaultyPlatform platform;
  platform.faults->timeOutDuringRelease = true;
  RecursiveMutex mutex;
  ThreadCondition condition(mutex);
  int waiting = 0, woken = 0;
  auto threads = startThreads(3, [&](int) {
    Synchronized hold(mutex);
    ++waiting;
    if (condition.wait(1000)) ++woken;
  });
  ASSERT_TRUE(eventually([&] {
    Synchronized hold(mutex);
    return waiting == 3;
  }));
  condition.broadcast();
  for (auto& thread : threads) ASSERT_TRUE(ends(*thread));
  EXPECT_EQ(woken, 3);
  platform.faults->timeOutDuringRelease = false;
  Synchronized hold(mutex);
  EXPECT_FALSE(condition.wait(0));
}

TEST(ThreadCondition, TimedWaitsAndBroadcastsHammered) {
  RecursiveMutex mutex;
  ThreadCondition condition(mutex);
  std::atomic<int> left{6};
  auto waiters = startThreads(6, [&](int i) {
    for (int round = 0; round < 300; ++round) {
      Synchronized hold(mutex);
      condition.wait(static_cast<uint32_t>((i + round) % 3));
    }
    --left;
  });
  auto broadcasters = startThreads(2, [&](int i) {
    while (left > 0) {
      if (i == 0) {
        condition.broadcast();
      } else {
        Synchronized hold(mutex);
        condition.broadcast();
      }
      StopToken().sleepFor(0);
    }
  });
  for (auto& thread : waiters) ASSERT_TRUE(ends(*thread));
  for (auto& thread : broadcasters) ASSERT_TRUE(ends(*thread));
  Synchronized hold(mutex);
  EXPECT_FALSE(condition.wait(0));
}

TEST(ThreadEvent, StaysSetUntilResetAndExpiresQuietly) {
  ThreadEvent event(1);
  EXPECT_FALSE(event.posted());
  EXPECT_NO_THROW(event.wait());
  event.pulse();
  EXPECT_FALSE(event.posted());
  event.post();
  EXPECT_TRUE(event.posted());
  event.wait();
  EXPECT_TRUE(event.posted());
  event.reset();
  EXPECT_FALSE(event.posted());
}

}  // namespace
}  // namespace korvane::testing
