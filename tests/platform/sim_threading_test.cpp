// What is the simulation's own: time that jumps, orders drawn from a seed, deadlocks that
// are reported.
#include "platform/fake/sim_threading.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <exception>
#include <set>
#include <utility>

#include "platform/fake/fake_platform.h"

namespace korvane::platform {
namespace {

// Three workers that log their number in the order in which they get to run.
std::string orderOf(uint64_t seed, uint64_t* hash = nullptr) {
  SimThreading sim(seed);
  const auto mutex = sim.createMutex();
  std::string order;
  std::vector<std::unique_ptr<NativeThread>> threads;
  for (const char name : {'a', 'b', 'c'})
    threads.push_back(sim.createThread(0, [&, name] {
      for (int i = 0; i < 3; ++i) {
        mutex->lock();
        order += name;
        mutex->unlock();
      }
    }));
  for (auto& thread : threads) thread->join(kInfinite);
  if (hash) *hash = sim.scheduleHash();
  return order;
}

TEST(SimThreading, aSeedReplaysItsOrderAndSeedsDiffer) {
  std::set<std::string> orders;
  for (uint64_t seed = 0; seed < 20; ++seed) {
    uint64_t first = 0, second = 1;
    const std::string order = orderOf(seed, &first);
    EXPECT_EQ(orderOf(seed, &second), order);
    EXPECT_EQ(first, second);
    orders.insert(order);
  }
  EXPECT_GT(orders.size(), 10u);
}

TEST(SimThreading, aWeekOfOneSecondCyclesPassesWithTheWork) {
  SimThreading sim(1);
  FakePlatform fake(sim);
  const auto stop = sim.createEvent(true, false);
  int cycles = 0;
  const auto worker = sim.createThread(0, [&] {
    while (stop->wait(1000) == WaitResult::timedOut) ++cycles;
  });
  const int64_t start = fake.platform().clock.wallMs();
  sim.runFor(24 * 3600 * 1000 + 500);
  EXPECT_EQ(cycles, 24 * 3600);
  EXPECT_EQ(fake.platform().clock.wallMs() - start, 24 * 3600 * 1000 + 500);
  sim.setWall(5);
  EXPECT_EQ(fake.platform().clock.wallMs(), 5);
  stop->set();
  EXPECT_EQ(worker->join(kInfinite), WaitResult::signalled);
  EXPECT_EQ(cycles, 24 * 3600) << "the stop cut the last wait short";
}

TEST(SimThreading, aMissingLockIsFoundBySomeSeed) {
  int lostUpdates = 0;
  for (uint64_t seed = 0; seed < 50; ++seed) {
    SimThreading sim(seed);
    const auto unrelated = sim.createMutex();
    int balance = 0;
    const auto add = [&] {
      const int read = balance;
      unrelated->lock();
      unrelated->unlock();
      balance = read + 1;
    };
    const auto one = sim.createThread(0, add), two = sim.createThread(0, add);
    one->join(kInfinite);
    two->join(kInfinite);
    lostUpdates += balance == 1;
  }
  EXPECT_GT(lostUpdates, 0);
  EXPECT_LT(lostUpdates, 50);
}

thread_local int ofThread = 7;

// Its variables, its errno and the exception that it is at work on, through waits in between.
TEST(SimThreading, whatBelongsToAThreadFollowsIt) {
  SimThreading sim(5);
  const auto mutex = sim.createMutex();
  const auto work = [&](int own) {
    EXPECT_EQ(std::exchange(ofThread, own), 7);
    for (int i = 0; i < 20; ++i) {
      errno = own;
      try {
        throw own;
      } catch (int) {
        mutex->lock();
        mutex->unlock();
        EXPECT_EQ(errno, own);
        EXPECT_THROW(std::rethrow_exception(std::current_exception()), int);
        try {
          throw;
        } catch (int thrown) {
          EXPECT_EQ(thrown, own);
        }
      }
      EXPECT_EQ(std::uncaught_exceptions(), 0);
      EXPECT_EQ(ofThread, own);
    }
  };
  std::vector<std::unique_ptr<NativeThread>> threads;
  for (int own = 1; own <= 3; ++own)
    threads.push_back(sim.createThread(0, [&work, own] { work(own); }));
  for (auto& thread : threads) thread->join(kInfinite);
  EXPECT_EQ(ofThread, 7);
}

TEST(SimThreading, aDeadlockIsReportedAndItsWaitsFail) {
  std::vector<std::string> reports;
  SimThreading sim(3, [&](const std::string& report) { reports.push_back(report); });
  const auto never = sim.createEvent(true, false);
  WaitResult inside = WaitResult::signalled;
  const auto thread = sim.createThread(0, [&] { inside = never->wait(kInfinite); });
  EXPECT_EQ(never->wait(kInfinite), WaitResult::failed);
  EXPECT_EQ(thread->join(kInfinite), WaitResult::signalled);
  EXPECT_EQ(inside, WaitResult::failed);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_THAT(reports[0], testing::AllOf(testing::HasSubstr("thread 1 waits for an event"),
                                         testing::HasSubstr("thread 2 waits for an event")));
}

void lockInOppositeOrder(uint64_t seed) {
  SimThreading sim(seed);
  const auto first = sim.createMutex();
  const auto second = sim.createMutex();
  const auto both = [](Mutex& outer, Mutex& inner) {
    outer.lock();
    inner.lock();
    inner.unlock();
    outer.unlock();
  };
  const auto other = sim.createThread(0, [&] { both(*first, *second); });
  both(*second, *first);
  other->join(kInfinite);
}

TEST(SimThreadingDeathTest, mutexesTakenInOppositeOrderAbortWithAReport) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(for (uint64_t seed = 0; seed < 100; ++seed) lockInOppositeOrder(seed),
               "deadlock:.* waits for a mutex");
}

}  // namespace
}  // namespace korvane::platform
