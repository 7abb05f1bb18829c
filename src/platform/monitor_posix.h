// A mutex with a condition variable on the monotonic clock, and the deadlines that go with it. Raw
// pthreads, because std::condition_variable's timed waits go through calls that GCC's thread
// sanitizer does not know. Only for the POSIX siblings of the seam.
//
//   MonitorLock lock(monitor);
//   while (!ready)
//     if (!lock.waitUntil(deadline)) return WaitResult::timedOut;
#pragma once

#include <pthread.h>
#include <time.h>

#include <cstdint>

#include "platform/threading.h"
#include "util/thread_annotations.h"

namespace korvane::platform {

// The instant `timeoutMs` from now; kInfinite gives one that never comes.
struct Deadline {
  explicit Deadline(uint32_t timeoutMs);
  // What is left in milliseconds, rounded up, as poll(2) takes it: -1 without limit.
  int remainingMs() const;

  bool infinite;
  timespec at{};
};

class CAPABILITY("mutex") Monitor {
 public:
  Monitor();
  ~Monitor();
  Monitor(const Monitor&) = delete;
  Monitor& operator=(const Monitor&) = delete;

 private:
  friend class MonitorLock;
  pthread_mutex_t _mutex;
  pthread_cond_t _condition;
};

// Holds a monitor's mutex for a scope.
class SCOPED_CAPABILITY MonitorLock {
 public:
  explicit MonitorLock(Monitor& monitor) ACQUIRE(monitor);
  ~MonitorLock() RELEASE();
  MonitorLock(const MonitorLock&) = delete;
  MonitorLock& operator=(const MonitorLock&) = delete;

  // Waits for notifyAll(), or for nothing at all: test the condition in a loop. False once the
  // deadline has passed.
  bool waitUntil(const Deadline& deadline);
  void notifyAll();

 private:
  Monitor& _monitor;
};

}  // namespace korvane::platform
