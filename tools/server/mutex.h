// A mutex that clang's thread-safety analysis knows, and its scope lock.
#pragma once

#include <mutex>

#include "util/thread_annotations.h"

namespace korvane::server {

class CAPABILITY("mutex") Mutex {
 public:
  void lock() ACQUIRE() { _mutex.lock(); }
  void unlock() RELEASE() { _mutex.unlock(); }

 private:
  std::mutex _mutex;
};

class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
  ~MutexLock() RELEASE() { _mutex.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& _mutex;
};

}  // namespace korvane::server
