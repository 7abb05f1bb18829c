// The language's own mutex, for what belongs to the process and not to a run of the agent,
// and for rooms that lie beside the one with the agent's locks. Nothing waits while holding
// it but for the disk.
#pragma once

#include <mutex>

#include "util/thread_annotations.h"

namespace korvane {

class CAPABILITY("mutex") ProcessMutex {
 public:
  void lock() ACQUIRE() { _mutex.lock(); }
  void unlock() RELEASE() { _mutex.unlock(); }

 private:
  std::mutex _mutex;
};

class SCOPED_CAPABILITY ProcessLock {
 public:
  explicit ProcessLock(ProcessMutex& mutex) ACQUIRE(mutex) : _mutex(mutex) { _mutex.lock(); }
  ~ProcessLock() RELEASE() { _mutex.unlock(); }
  ProcessLock(const ProcessLock&) = delete;
  ProcessLock& operator=(const ProcessLock&) = delete;

 private:
  ProcessMutex& _mutex;
};

}  // namespace korvane
