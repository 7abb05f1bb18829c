// A condition variable over a RecursiveMutex, after Schmidt and Pyarali's "Strategies for
// Implementing POSIX Condition Variables on Win32": a counting semaphore that waiters queue on, a
// waiter count, and an event that the last waiter of a broadcast posts.
//
// Callers hold the mutex, once, around wait(); it is given back for the wait and held again
// afterwards. wait() may return without a broadcast meant for it: test the condition in a loop.
// broadcast() takes the mutex itself, so a caller may hold it or not. A waiter whose time runs out
// while a broadcast is under way counts as woken by it.
#pragma once

#include <cstdint>
#include <memory>

#include "agent/thread/locks.h"
#include "agent/thread/thread_event.h"

namespace korvane {

class ThreadCondition {
 public:
  // "ThreadCondition::ThreadCondition(RecursiveMutex&)", 11 when the semaphore is not available.
  explicit ThreadCondition(RecursiveMutex& mutex);
  ~ThreadCondition();

  // Waits for a broadcast, at most timeoutMs; false when the time ran out.
  // "ThreadCondition::wait()", 8.
  [[nodiscard]] bool wait(uint32_t timeoutMs = platform::kInfinite) NO_THREAD_SAFETY_ANALYSIS;
  // Wakes every waiter; returns when all of them have left the semaphore.
  // "ThreadCondition::broadcast()", 13.
  void broadcast();

 private:
  platform::WaitResult awaitSemaphore(uint32_t timeoutMs);
  [[nodiscard]] bool releaseWaiters();

  RecursiveMutex& _mutex;
  std::unique_ptr<platform::Semaphore> _semaphore;  // initial 0, maximum 2147483647
  Win32Mutex _countLock;
  int _waiters GUARDED_BY(_countLock) = 0;
  bool _broadcasting GUARDED_BY(_countLock) = false;
  ThreadEvent _waitersDone;
};

}  // namespace korvane
