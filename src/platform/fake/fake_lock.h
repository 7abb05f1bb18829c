// The lock that the fakes guard their data with. It is a plain mutex, never held during a wait or a
// call back into the test, so that the fakes work on simulated threads as well as on real ones.
#pragma once

#include <mutex>

#include "util/thread_annotations.h"

namespace korvane::platform {

class CAPABILITY("mutex") FakeMutex {
 public:
  void lock() ACQUIRE() { _mutex.lock(); }
  void unlock() RELEASE() { _mutex.unlock(); }

 private:
  std::mutex _mutex;
};

class SCOPED_CAPABILITY FakeLock {
 public:
  explicit FakeLock(FakeMutex& mutex) ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
  ~FakeLock() RELEASE() { _mutex.unlock(); }
  FakeLock(const FakeLock&) = delete;
  FakeLock& operator=(const FakeLock&) = delete;

 private:
  FakeMutex& _mutex;
};

}  // namespace korvane::platform
