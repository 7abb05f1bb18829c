#include "agent/thread/thread_condition.h"

#include "agent/thread/exceptions.h"
#include "agent/thread/run_threading.h"
#include "platform/threading.h"

namespace korvane {

using platform::WaitResult;

namespace {
constexpr uint32_t kSemaphoreMaximum = 2147483647;
}

ThreadCondition::ThreadCondition(RecursiveMutex& mutex)
    : _mutex(mutex), _semaphore(threadingOfThisRun().createSemaphore(0, kSemaphoreMaximum)) {
  if (!_semaphore) throw ThreadException("ThreadCondition::ThreadCondition(RecursiveMutex&)", 11);
}

ThreadCondition::~ThreadCondition() = default;

bool ThreadCondition::wait(uint32_t timeoutMs) {
  {
    Synchronized hold(_countLock);
    ++_waiters;
  }
  _mutex.unlock();
  const WaitResult result = awaitSemaphore(timeoutMs);
  _mutex.lock();
  if (result == WaitResult::signalled) return true;
  if (result == WaitResult::timedOut) return false;
  throw ThreadException("ThreadCondition::wait()", 8);
}

// Leaves the count in step with the semaphore: during a broadcast every counted waiter takes one
// unit, also the one that came away without, or the unit would wake somebody later for nothing.
WaitResult ThreadCondition::awaitSemaphore(uint32_t timeoutMs) {
  WaitResult result = _semaphore->wait(timeoutMs);
  Synchronized hold(_countLock);
  if (_broadcasting && result != WaitResult::signalled) result = _semaphore->wait(0);
  try {
    if (--_waiters == 0 && _broadcasting) _waitersDone.post();
  } catch (const ThreadException&) {
    result = WaitResult::failed;
  }
  return result;
}

void ThreadCondition::broadcast() {
  // Nobody can begin to wait while the mutex is held, so the units released reach those counted
  // here.
  Synchronized callers(_mutex);
  bool done = false;
  try {
    if (!releaseWaiters()) return;
    _waitersDone.wait();
    done = true;
  } catch (const ThreadException&) {
  }
  Synchronized hold(_countLock);
  _broadcasting = false;
  if (!done) throw ThreadException("ThreadCondition::broadcast()", 13);
}

// The release happens under the count's lock: whoever sees the broadcast under way finds its unit
// there.
bool ThreadCondition::releaseWaiters() {
  Synchronized hold(_countLock);
  if (_waiters == 0) return false;
  _waitersDone.reset();
  if (!_semaphore->release(static_cast<uint32_t>(_waiters)))
    throw ThreadException("ThreadCondition::broadcast()", 13);
  _broadcasting = true;
  return true;
}

}  // namespace korvane
