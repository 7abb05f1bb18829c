// What every Threading must do: the system's own, and the simulated one.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "platform/fake/sim_threading.h"
#include "platform/native.h"
#include "tests/platform/patience.h"

namespace korvane::platform {
namespace {

// Long enough that a loaded machine does not reach it, short enough to fail a test.
struct NativeThreadingWorld {
  std::unique_ptr<Threading> owned = makeNativeThreading();
  std::unique_ptr<Clock> ownedClock = makeNativeClock();
  Threading& threading = *owned;
  Clock& clock = *ownedClock;
};

struct SimThreadingWorld {
  SimThreading threading{7};
  Clock& clock = threading.clock();
};

template <class World>
class ThreadingConformance : public testing::Test {
 protected:
  World world;
  Threading& threading = world.threading;

  std::unique_ptr<NativeThread> run(std::function<void()> body) {
    return threading.createThread(64 * 1024, std::move(body));
  }
};

using ThreadingWorlds = testing::Types<NativeThreadingWorld, SimThreadingWorld>;
TYPED_TEST_SUITE(ThreadingConformance, ThreadingWorlds);

TYPED_TEST(ThreadingConformance, manualEventStaysSetAutoEventIsTakenOnce) {
  const auto manual = this->threading.createEvent(true, true);
  const auto automatic = this->threading.createEvent(false, true);
  EXPECT_EQ(manual->wait(0), WaitResult::signalled);
  EXPECT_EQ(manual->wait(0), WaitResult::signalled);
  EXPECT_TRUE(manual->reset());
  EXPECT_EQ(manual->wait(0), WaitResult::timedOut);
  EXPECT_EQ(automatic->wait(0), WaitResult::signalled);
  EXPECT_EQ(automatic->wait(0), WaitResult::timedOut);
  EXPECT_TRUE(automatic->set());
  EXPECT_TRUE(automatic->set());
  EXPECT_EQ(automatic->wait(0), WaitResult::signalled);
  EXPECT_EQ(automatic->wait(0), WaitResult::timedOut) << "two sets are one";
}

TYPED_TEST(ThreadingConformance, aTimedWaitLastsAsLongAsAsked) {
  const auto event = this->threading.createEvent(true, false);
  const auto semaphore = this->threading.createSemaphore(0, 1);
  const int64_t start = this->world.clock.monotonicMs();
  EXPECT_EQ(event->wait(30), WaitResult::timedOut);
  EXPECT_EQ(semaphore->wait(30), WaitResult::timedOut);
  EXPECT_GE(this->world.clock.monotonicMs() - start, 58);
}

TYPED_TEST(ThreadingConformance, setWakesAllOfAManualEventAndOneOfAnAutoEvent) {
  for (const bool manual : {true, false}) {
    const auto event = this->threading.createEvent(manual, false);
    const auto ready = this->threading.createSemaphore(0, 8);
    std::atomic<int> woken{0};
    std::vector<std::unique_ptr<NativeThread>> threads;
    for (int i = 0; i < 4; ++i)
      threads.push_back(this->run([&] {
        ready->release(1);
        if (event->wait(kLongMs) == WaitResult::signalled) ++woken;
      }));
    for (int i = 0; i < 4; ++i) ASSERT_EQ(ready->wait(kLongMs), WaitResult::signalled);
    event->set();
    if (!manual)
      for (int left = 3; left > 0; --left) {
        while (woken < 4 - left) ASSERT_EQ(ready->wait(1), WaitResult::timedOut);
        EXPECT_EQ(woken, 4 - left);
        event->set();
      }
    for (auto& thread : threads) EXPECT_EQ(thread->join(kLongMs), WaitResult::signalled);
    EXPECT_EQ(woken, 4);
  }
}

TYPED_TEST(ThreadingConformance, pulseReleasesOnlyThoseThatWait) {
  const auto event = this->threading.createEvent(true, true);
  EXPECT_TRUE(event->pulse());
  EXPECT_EQ(event->wait(0), WaitResult::timedOut) << "a pulse leaves the event unset";
  std::atomic<bool> released{false};
  const auto waiter = this->run([&] { released = event->wait(kLongMs) == WaitResult::signalled; });
  while (waiter->join(1) == WaitResult::timedOut) event->pulse();
  EXPECT_TRUE(released);
  EXPECT_EQ(event->wait(0), WaitResult::timedOut);
}

TYPED_TEST(ThreadingConformance, semaphoreCountsAndKeepsItsMaximum) {
  EXPECT_EQ(this->threading.createSemaphore(2, 1), nullptr);
  const auto semaphore = this->threading.createSemaphore(1, 3);
  EXPECT_FALSE(semaphore->release(3));
  EXPECT_TRUE(semaphore->release(2));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(semaphore->wait(0), WaitResult::signalled);
  EXPECT_EQ(semaphore->wait(0), WaitResult::timedOut);
  EXPECT_FALSE(semaphore->release(0xFFFFFFFF)) << "no overflow";
}

TYPED_TEST(ThreadingConformance, mutexIsRecursiveAndExcludes) {
  const auto mutex = this->threading.createMutex();
  mutex->lock();
  mutex->lock();
  int counter = 0;
  const auto other = this->run([&] {
    mutex->lock();
    ++counter;
    mutex->unlock();
  });
  EXPECT_EQ(other->join(20), WaitResult::timedOut);
  mutex->unlock();
  EXPECT_EQ(other->join(20), WaitResult::timedOut) << "taken twice, given back once";
  EXPECT_EQ(counter, 0);
  mutex->unlock();
  EXPECT_EQ(other->join(kLongMs), WaitResult::signalled);

  std::vector<std::unique_ptr<NativeThread>> threads;
  for (int i = 0; i < 3; ++i)
    threads.push_back(this->run([&] {
      for (int n = 0; n < 500; ++n) {
        mutex->lock();
        ++counter;
        mutex->unlock();
      }
    }));
  for (auto& thread : threads) EXPECT_EQ(thread->join(kLongMs), WaitResult::signalled);
  EXPECT_EQ(counter, 1501);
}

TYPED_TEST(ThreadingConformance, threadsHaveIdsPrioritiesAndAnEnd) {
  const auto go = this->threading.createEvent(true, false);
  uint64_t seen = 0;
  const auto thread = this->run([&] {
    go->wait(kLongMs);
    seen = this->threading.currentThreadId();
  });
  ASSERT_NE(thread, nullptr);
  EXPECT_EQ(thread->join(0), WaitResult::timedOut);
  EXPECT_EQ(thread->join(20), WaitResult::timedOut);
  EXPECT_TRUE(thread->setPriority(NativePriority::normal));
  EXPECT_TRUE(thread->setPriority(NativePriority::lowest));
  go->set();
  EXPECT_EQ(thread->join(kLongMs), WaitResult::signalled);
  EXPECT_EQ(thread->join(kLongMs), WaitResult::signalled) << "and again";
  EXPECT_EQ(seen, thread->id());
  EXPECT_FALSE(thread->setPriority(NativePriority::lowest)) << "it has ended";

  const auto self = this->threading.adoptCurrentThread();
  EXPECT_EQ(self->id(), this->threading.currentThreadId());
  EXPECT_NE(self->id(), thread->id());
  EXPECT_TRUE(self->setPriority(NativePriority::normal));
  EXPECT_EQ(self->join(0), WaitResult::failed);
}

TYPED_TEST(ThreadingConformance, aThreadWhoseObjectIsGoneRunsOn) {
  const auto go = this->threading.createEvent(true, false);
  const auto done = this->threading.createEvent(true, false);
  this->run([&] {
    go->wait(kLongMs);
    done->set();
  });
  go->set();
  EXPECT_EQ(done->wait(kLongMs), WaitResult::signalled);
}

TYPED_TEST(ThreadingConformance, slotsArePerThreadAndNullAtFirst) {
  const auto slot = this->threading.createThreadLocalSlot();
  int mine = 0;
  EXPECT_EQ(slot->get(), nullptr);
  EXPECT_TRUE(slot->set(&mine));
  void* other = &mine;
  this->run([&] { other = slot->get(); })->join(kLongMs);
  EXPECT_EQ(other, nullptr);
  EXPECT_EQ(slot->get(), &mine);
}

TYPED_TEST(ThreadingConformance, theMonotonicClockDoesNotGoBack) {
  int64_t last = this->world.clock.monotonicMs();
  for (int i = 0; i < 1000; ++i) {
    const int64_t now = this->world.clock.monotonicMs();
    ASSERT_GE(now, last);
    last = now;
  }
  EXPECT_GT(this->world.clock.wallMs(), int64_t{1600000000} * 1000);
}

}  // namespace
}  // namespace korvane::platform
