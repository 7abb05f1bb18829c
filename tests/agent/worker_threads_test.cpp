#include "agent/worker_threads.h"

#include <gtest/gtest.h>

#include "agent/thread/thread.h"
#include "tests/support/simulated_agent.h"

namespace korvane {
namespace {

using tests::SimulatedMachine;

// Ends that long after its stop has been requested.
class SlowToStop : public Thread {
 public:
  explicit SlowToStop(uint32_t delayMs) : _delayMs(delayMs) {}

 protected:
  void run() override {
    stopToken().sleepFor(platform::kInfinite);
    StopToken never;
    never.sleepFor(_delayMs);
  }

 private:
  const uint32_t _delayMs;
};

TEST(WorkerThreads, WaitsInStepsOfASecondThatEndWithTheThread) {
  struct WaitCase {
    uint32_t delayMs;
    int counter;  // what is left of 30 waits
    int64_t tookMs;
    int abandoned;
  };
  const WaitCase cases[] = {{400, 29, 400, 0}, {2500, 27, 2500, 0}, {60000, -1, 31000, 1}};
  for (const WaitCase& row : cases) {
    SCOPED_TRACE(row.delayMs);
    SimulatedMachine machine;
    const int abandonedBefore = Thread::abandoned();
    WorkerThreads workers;
    workers.start(Worker::update, [&] { return new SlowToStop(row.delayMs); });
    machine.sim.runFor(10);
    const int64_t before = machine.now();
    workers.requestStops();
    EXPECT_EQ(workers.waitForEnd(true), row.counter);
    EXPECT_EQ(machine.now() - before, row.tookMs);
    workers.remove();
    EXPECT_EQ(Thread::abandoned() - abandonedBefore, row.abandoned);
    EXPECT_EQ(machine.countLines("Waiting for thread to exit"),
              static_cast<size_t>(30 - row.counter));
    machine.sim.runFor(60000);  // the one that was left behind ends and deletes itself
  }
}

TEST(WorkerThreads, PassesOverAThreadThatCannotBeHad) {
  SimulatedMachine machine;
  WorkerThreads workers;
  workers.start(Worker::comm, []() -> Thread* { throw ThreadException("Thread::Thread()", 2); });
  workers.start(Worker::util, []() -> Thread* { throw std::bad_alloc(); });
  workers.start(Worker::update, []() -> Thread* { return nullptr; });
  workers.requestStops();
  EXPECT_EQ(workers.waitForEnd(false), 30);
  EXPECT_EQ(machine.countLines("Stopping"), 0U);
}

}  // namespace
}  // namespace korvane
