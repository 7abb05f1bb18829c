// Threads that run one at a time, in an order drawn from a seed, on simulated time.
//
// A simulated thread is a stack that runs while it has the baton (sim_context.h). Every wait on an
// Event, Semaphore, Mutex or for a thread's end goes to the scheduler, which passes the baton to
// one of the threads that can run; a Mutex's lock and unlock and the start of a thread are
// further places where it may change hands. When all threads wait, time jumps to the
// earliest deadline. So an hour of one-second cycles takes no longer than the work that is
// done in it, and one seed replays one run exactly, as long as the threads touch nothing
// outside the seam that behaves differently from run to run.
//
// The thread that makes the object is the first simulated thread and has the baton; only it
// destroys the object, after which the others that are left have ended: the destructor lets them
// run, and time pass, until they have. Threads that the simulation does not know must not call it.
//
// Deadlock: when all threads wait without a limit the handler is called with a text that
// says what each one waits for; then every wait of that moment but those for a Mutex ends
// as failed. Without a handler the text goes to the standard error output and the program
// is aborted. So is one with nothing but Mutex waits left.
//
//   SimThreading sim(seed);
//   FakePlatform fake(sim);
//   CurrentPlatform current(fake.platform());
//   ... start the agent's threads ...
//   sim.runFor(7 * 24 * 3600 * 1000);   // a week
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/clock.h"
#include "platform/threading.h"

namespace korvane::platform {

class SimScheduler;

class SimThreading final : public Threading {
 public:
  using DeadlockHandler = std::function<void(const std::string& report)>;

  explicit SimThreading(uint64_t seed, DeadlockHandler handler = nullptr);
  ~SimThreading() override;

  // Simulated time; it starts at 2026-01-01 00:00:00 UTC.
  Clock& clock();
  // Sets the wall clock alone.
  void setWall(int64_t milliseconds);
  // At how many of the locks and unlocks of a Mutex another thread may go on: one in `n`, drawn by
  // the seed; all of them from the start. Many agents together have no use for so much disorder.
  void yieldOnceIn(uint32_t n);
  // Lets the other threads run while that much time passes; for the simulation's own threads.
  void runFor(int64_t milliseconds);
  // A number that sums up every decision so far: equal for two runs that went the same way.
  uint64_t scheduleHash() const;
  // What each thread waits for.
  std::string waits() const;
  // How often the baton has been passed.
  uint64_t switches() const;

  std::unique_ptr<Event> createEvent(bool manualReset, bool signalled) override;
  std::unique_ptr<Semaphore> createSemaphore(uint32_t initial, uint32_t maximum) override;
  std::unique_ptr<Mutex> createMutex() override;
  std::unique_ptr<ThreadLocalSlot> createThreadLocalSlot() override;
  std::unique_ptr<NativeThread> createThread(uint32_t stackBytes,
                                             std::function<void()> body) override;
  std::unique_ptr<NativeThread> adoptCurrentThread() override;
  uint64_t currentThreadId() override;

 private:
  struct Time;
  const std::shared_ptr<SimScheduler> _scheduler;
  const std::unique_ptr<Time> _time;
};

}  // namespace korvane::platform
