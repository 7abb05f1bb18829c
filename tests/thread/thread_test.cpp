#include <atomic>
#include <memory>
#include <stdexcept>
#include <vector>

#include "agent/thread/thread.h"
#include "agent/thread/thread_key.h"
#include "tests/thread/faulty_threading.h"
#include "tests/thread/function_thread.h"

namespace korvane::testing {
namespace {

TEST(Thread, RunsItsBodyOnceBetweenStartAndEnd) {
  std::atomic<int> runs{0};
  Thread* seen = nullptr;
  FunctionThread thread([&](FunctionThread&) {
    seen = Thread::current();
    ++runs;
  });
  EXPECT_FALSE(thread.isAlive());
  EXPECT_EQ(runs, 0);
  thread.start();
  ASSERT_TRUE(ends(thread));
  EXPECT_EQ(runs, 1);
  EXPECT_EQ(seen, &thread);
  EXPECT_EQ(Thread::current(), nullptr);
}

TEST(Thread, SecondStartThrowsBeforeAndAfterTheEnd) {
  FunctionThread thread(
      [](FunctionThread& self) { self.stopToken().sleepFor(platform::kInfinite); });
  thread.start();
  for (const bool ended : {false, true}) {
    if (ended) {
      thread.stop();
      ASSERT_TRUE(ends(thread));
    }
    try {
      thread.start();
      FAIL() << "started twice, ended " << ended;
    } catch (const ThreadException& e) {
      EXPECT_EQ(e.method(), "Thread::start()");
      EXPECT_EQ(e.number(), 7);
      EXPECT_STREQ(e.what(), "Thread::start() failed (7)");
    }
  }
}

TEST(Thread, StoppedBeforeStartOrNeverStartedEndsWithoutTheBody) {
  std::atomic<int> runs{0};
  const int abandonedBefore = Thread::abandoned();
  for (const bool startAfterwards : {false, true}) {
    FunctionThread neverStarted([&](FunctionThread&) { ++runs; });
    FunctionThread thread([&](FunctionThread&) { ++runs; });
    thread.stop();
    if (startAfterwards) thread.start();
    EXPECT_TRUE(ends(thread));
  }
  EXPECT_EQ(runs, 0);
  EXPECT_EQ(Thread::abandoned(), abandonedBefore);
}

TEST(Thread, StopFromInsideEndsTheBody) {
  std::string method;
  int number = 0;
  std::atomic<bool> reached{false};
  FunctionThread thread([&](FunctionThread& self) {
    try {
      self.stop();
    } catch (const ThreadDeathException& e) {
      method = e.method();
      number = e.number();
      throw;
    }
    reached = true;
  });
  thread.start();
  ASSERT_TRUE(ends(thread));
  EXPECT_EQ(method, "Thread::stop()");
  EXPECT_EQ(number, 6);
  EXPECT_FALSE(reached);
  EXPECT_TRUE(thread.stopRequested());
}

TEST(Thread, NoExceptionLeavesTheBody) {
  const std::vector<std::function<void()>> bodies = {
      [] { throw ThreadDeathException("x", 1); }, [] { throw ThreadException("x", 2); },
      [] { throw std::runtime_error("x"); }, [] { throw 7; }};
  for (const auto& body : bodies) {
    FunctionThread thread([&](FunctionThread&) { body(); });
    thread.start();
    EXPECT_TRUE(ends(thread));
  }
}

TEST(Thread, StopWakesABodyThatWaitsOnItsCondition) {
  // With the wait begun before the stop and after it: neither may sleep through it.
  for (const bool waitsFirst : {true, false}) {
    std::atomic<bool> inBody{false};
    FunctionThread thread([&](FunctionThread& self) {
      if (!waitsFirst) self.stopToken().sleepFor(platform::kInfinite);
      Synchronized hold(self.lock());
      inBody = true;
      while (!self.stopRequested()) self.waitOnCondition(platform::kInfinite);
      self.waitOnCondition(platform::kInfinite);
    });
    thread.start();
    if (waitsFirst) {
      ASSERT_TRUE(eventually([&] { return inBody.load(); }));
      // Whoever gets the lock now finds the body inside its wait.
      Synchronized hold(thread.lock());
    }
    thread.stop();
    ASSERT_TRUE(ends(thread));
  }
}

TEST(Thread, TimedWaitOnTheConditionExpires) {
  std::atomic<int> expired{0};
  FunctionThread thread([&](FunctionThread& self) {
    Synchronized hold(self.lock());
    for (int i = 0; i < 3; ++i) expired += self.waitOnCondition(1) ? 0 : 1;
  });
  thread.start();
  ASSERT_TRUE(ends(thread));
  EXPECT_EQ(expired, 3);
}

// Repeated, because stop() lets the thread go on that deletes the object stop() was called on.
TEST(Thread, SelfDeleteHappensAfterTheBody) {
  for (int i = 0; i < 100; ++i) {
    std::atomic<bool> destroyed{false};
    std::atomic<bool> bodyBegun{false}, bodyDone{false};
    auto* thread = new FunctionThread([&](FunctionThread& self) {
      bodyBegun = true;
      self.stopToken().sleepFor(platform::kInfinite);
      bodyDone = true;
    });
    thread->onDestroyed = [&] { destroyed = bodyDone.load(); };
    thread->setSelfDelete();
    thread->start();
    while (!bodyBegun) continue;
    thread->stop();
    ASSERT_TRUE(eventually([&] { return destroyed.load(); }));
  }
}

TEST(Thread, DisposeDeletesTheEndedAndLeavesTheRunningToItself) {
  std::atomic<int> destroyed{0};
  StopToken release;
  const int abandonedBefore = Thread::abandoned();
  Thread::dispose(nullptr);

  auto* ended = new FunctionThread([](FunctionThread&) {});
  ended->onDestroyed = [&] { ++destroyed; };
  ended->start();
  ASSERT_TRUE(ends(*ended));
  Thread::dispose(ended);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(Thread::abandoned(), abandonedBefore);

  auto* running =
      new FunctionThread([&](FunctionThread&) { release.sleepFor(platform::kInfinite); });
  running->onDestroyed = [&] { ++destroyed; };
  running->start();
  Thread::dispose(running);
  EXPECT_EQ(destroyed, 1);
  EXPECT_EQ(Thread::abandoned(), abandonedBefore + 1);
  release.request();
  EXPECT_TRUE(eventually([&] { return destroyed == 2; }));
}

TEST(Thread, AdoptsTheCallingThread) {
  {
    FunctionThread adopted{Thread::AdoptCurrent{}};
    EXPECT_TRUE(adopted.isAlive());
    EXPECT_EQ(Thread::current(), &adopted);
    EXPECT_THROW(adopted.start(), ThreadException);
    EXPECT_THROW(adopted.stop(), ThreadDeathException);
    EXPECT_NO_THROW(adopted.stop());
  }
  EXPECT_EQ(Thread::current(), nullptr);
}

TEST(Thread, PassesItsStackSizeOn) {
  FaultyPlatform platform;
  FunctionThread byDefault([](FunctionThread&) {});
  EXPECT_EQ(platform.faults->lastStackBytes, 256u * 1024);
  FunctionThread chosen([](FunctionThread&) {}, 1 << 20);
  EXPECT_EQ(platform.faults->lastStackBytes, 1u << 20);
}

// The agent frees a thread as soon as isAlive() is false; the sanitizers see whoever
// touches it then.
TEST(Thread, IsFreedTheMomentItHasEnded) {
  for (int i = 0; i < 300; ++i) {
    auto thread = std::make_unique<FunctionThread>([](FunctionThread& self) {
      while (!self.stopToken().sleepFor(50)) continue;
    });
    thread->start();
    thread->stop();
    while (thread->isAlive()) continue;
    thread.reset();
  }
}

TEST(Thread, StopAndStartFromManyThreadsAtOnce) {
  for (int round = 0; round < 50; ++round) {
    std::atomic<int> runs{0};
    FunctionThread target([&](FunctionThread& self) {
      ++runs;
      Synchronized hold(self.lock());
      while (!self.stopRequested()) self.waitOnCondition(platform::kInfinite);
    });
    std::atomic<int> refusals{0};
    std::vector<std::unique_ptr<FunctionThread>> others;
    for (int i = 0; i < 4; ++i)
      others.push_back(std::make_unique<FunctionThread>([&, i](FunctionThread&) {
        if (i % 2) return target.stop();
        try {
          target.start();
        } catch (const ThreadException&) {
          ++refusals;
        }
      }));
    for (auto& other : others) other->start();
    for (auto& other : others) ASSERT_TRUE(ends(*other));
    ASSERT_TRUE(ends(target));
    EXPECT_LE(runs, 1);
    EXPECT_EQ(refusals, 1);
  }
}

}  // namespace
}  // namespace korvane::testing
