// The log's mutex. It is the language's own, because this room lies beside the one with the agent's locks;
// nothing waits while holding it except for the disk.
#pragma once

#include <mutex>

#include "util/thread_annotations.h"

namespace korvane::eventlog {

class CAPABILITY("mutex") LogMutex {
 public:
  void lock() ACQUIRE() { _mutex.lock(); }
  void unlock() RELEASE() { _mutex.unlock(); }

 private:
  std::mutex _mutex;
};

class SCOPED_CAPABILITY LogLock {
 public:
  explicit LogLock(LogMutex& mutex) ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
  ~LogLock() RELEASE() { _mutex.unlock(); }
  LogLock(const LogLock&) = delete;
  LogLock& operator=(const LogLock&) = delete;

 private:
  LogMutex& _mutex;
};

}  // namespace korvane::eventlog
