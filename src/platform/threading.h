// Threads and the objects they wait on: the primitives under src/agent/thread. Every wait of
// the agent ends in one of these calls, so that a fake implementation can run the whole
// agent on simulated time.
//
// Lifetime: each object is owned by the unique_ptr that made it and must outlive every wait on it.
// It may be destroyed, but not used otherwise, after the Threading that made it is gone.
// Threads: all operations may be called by any thread at once.
// Errors: creation gives null when the system refuses; the other operations cannot fail except for
// a handle that is no longer valid, which they answer with false or WaitResult::failed.
//
// Windows: CreateEvent, CreateSemaphore, CRITICAL_SECTION, _beginthreadex, TlsAlloc.
// POSIX: pthread mutexes and condition variables on CLOCK_MONOTONIC.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/fwd.h"

namespace korvane::platform {

// All-ones, like Win32's INFINITE: the wait has no limit.
enum class WaitResult { signalled, timedOut, abandoned, failed };

// An event. Manual-reset: once set, every wait returns at once until reset. Auto-reset: one
// wait takes it.
class Event {
 public:
  virtual ~Event() = default;
  virtual bool set() = 0;
  virtual bool reset() = 0;
  // Releases the threads that wait at this moment (one of them when auto-reset) and leaves
  // the event unset.
  virtual bool pulse() = 0;
  // Waits at most timeoutMs milliseconds; 0 only looks.
  virtual WaitResult wait(uint32_t timeoutMs) = 0;
};

// A counting semaphore.
class Semaphore {
 public:
  virtual ~Semaphore() = default;
  // Adds `count`; false, and nothing added, when the maximum would be exceeded.
  [[nodiscard]] virtual bool release(uint32_t count) = 0;
  virtual WaitResult wait(uint32_t timeoutMs) = 0;
};

// A recursive mutex: the thread that holds it may take it again, and gives it back as often.
class Mutex {
 public:
  virtual ~Mutex() = default;
  virtual void lock() = 0;
  virtual void unlock() = 0;
};

// Win32's thread priorities of the same numbers. On POSIX a thread's nice value is raised by 5 for
// `lowest` and by 0 otherwise, since raising a priority needs privileges there.
enum class NativePriority : int { lowest = -2, normal = 0, highest = 2 };

// A running thread. Destroying the object detaches the thread; it does not end it.
class NativeThread {
 public:
  virtual ~NativeThread() = default;
  virtual uint64_t id() const = 0;
  virtual bool setPriority(NativePriority priority) = 0;
  // Waits until the thread's body has returned and its resources are back with the system.
  virtual WaitResult join(uint32_t timeoutMs) = 0;
};

// One pointer for each thread; null until set. Nothing is done with it when a thread ends.
class ThreadLocalSlot {
 public:
  virtual ~ThreadLocalSlot() = default;
  virtual void* get() const = 0;
  virtual bool set(void* value) = 0;
};

class Threading {
 public:
  virtual ~Threading() = default;
  [[nodiscard]] virtual std::unique_ptr<Event> createEvent(bool manualReset, bool signalled) = 0;
  [[nodiscard]] virtual std::unique_ptr<Semaphore> createSemaphore(uint32_t initial,
                                                                   uint32_t maximum) = 0;
  [[nodiscard]] virtual std::unique_ptr<Mutex> createMutex() = 0;
  [[nodiscard]] virtual std::unique_ptr<ThreadLocalSlot> createThreadLocalSlot() = 0;
  // Starts a thread that runs `body` once. stackBytes 0 means the system's default; a size below
  // the system's minimum is raised to it. `body` must not throw.
  [[nodiscard]] virtual std::unique_ptr<NativeThread> createThread(uint32_t stackBytes,
                                                                   std::function<void()> body) = 0;
  // The calling thread, whoever started it: id and priority work, join answers failed.
  [[nodiscard]] virtual std::unique_ptr<NativeThread> adoptCurrentThread() = 0;
  virtual uint64_t currentThreadId() = 0;
};

}  // namespace korvane::platform
