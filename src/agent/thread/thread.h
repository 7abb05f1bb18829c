// The base class of every worker thread.
//
// A Thread's operating-system thread exists from construction and waits for start(); run(),
// supplied by the derived class, is its body. stop() is a request and never waits; callers
// poll isAlive(). No exception leaves the body: ThreadDeathException, ThreadException and
// any other end it.
//
// Start: once. A second start() throws. A thread stopped before its start ends without running its
//   body, and a start() that comes after that stop does nothing.
// Stop: any thread, any number of times; from inside the body it ends the body by throwing. It sets
//   stopToken(), wakes a body that waits on condition(), and leaves the rest to the body.
// Destruction: when isAlive() is false, or was never true. The thread's last act on the object is
//   to set its run state to ended; what it still needs afterwards it owns itself. Destroying one
//   that was never started stops it and waits for it; one whose body still runs is detached and
//   counted (Thread::abandoned()). Its run stays for as long as it does. Derived classes whose body
//   uses their members must not be destroyed while alive.
// Priority: the body begins with normal priority; one set before the start does not last.
//
// Errors: ThreadException with the method texts and numbers given beside each operation.
//
//   class Poller : public Thread {
//     ~Poller() override = default;
//     void run() override { while (!stopToken().sleepFor(1000)) poll(); }
//   };
//   Thread* poller = new Poller;
//   poller->start();
//   ...
//   poller->stop();
//   while (poller->isAlive() && ...) ...
//   Thread::dispose(poller);
//
// Windows: _beginthreadex with the given stack size. POSIX: pthreads.
#pragma once

#include <cstdint>
#include <memory>

#include "agent/thread/exceptions.h"
#include "agent/thread/locks.h"
#include "agent/thread/stop_token.h"
#include "agent/thread/thread_condition.h"
#include "agent/thread/thread_event.h"
#include "util/export.h"

namespace korvane {

class KORVANE_EXPORT Thread {
 public:
  enum class ThreadPriority { lowest, normal, highest };
  struct AdoptCurrent {};

  // Creates the operating-system thread and returns when it runs. "Thread::Thread()", 2 when the
  // system refuses. stackBytes: 0 means kDefaultStackBytes.
  explicit Thread(uint32_t stackBytes = 0);
  // Wraps the calling thread: run state started, registered under the thread key; run() is never
  // called.
  explicit Thread(AdoptCurrent);
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;
  virtual ~Thread();
  virtual void stop();   // from inside: ThreadDeathException "Thread::stop()", 6
  virtual void start();  // "Thread::start()", 7 when already started

  static constexpr uint32_t kDefaultStackBytes = 256 * 1024;

  void setPriority(ThreadPriority priority);  // "Thread::setPriority(ThreadPriority)", 5
  bool isAlive() const;
  // Waits until isAlive() is false, at most that long; tells whether it is. The caller keeps the
  // object from being destroyed meanwhile. From inside the body it answers at once.
  bool waitEnded(uint32_t timeoutMs) const;
  bool stopRequested() const;
  // Set by stop(); what the body's waits use.
  StopToken& stopToken();
  // The object deletes itself when its body ends; nobody else may delete it then.
  void setSelfDelete();

  // The Thread that the calling operating-system thread belongs to, or null.
  static Thread* current();
  // How many threads of this run were left running because they outlived the wait for their end.
  static int abandoned();
  // Deletes a thread that has ended. One that still runs is left to delete itself when it ends and
  // is counted as abandoned. Null is ignored.
  static void dispose(Thread* thread);

 protected:
  virtual void run() = 0;

  // For bodies: wait on condition() with lock() held; stop() broadcasts it.
  RecursiveMutex& lock();
  ThreadCondition& condition();
  // Waits on the condition, at most timeoutMs; false when the time ran out. Returns at once when a
  // stop has been requested. The caller holds lock(), once.
  [[nodiscard]] bool waitOnCondition(uint32_t timeoutMs);

 private:
  // What object and operating-system thread share; the thread keeps it for the steps that follow
  // the end of its body, when the object may be gone.
  struct Control;

  static void wrapper(Thread& self, const std::shared_ptr<Control>& control) noexcept;
  static void runBody(Thread& self, Control& control);

  std::shared_ptr<Control> _control;
};

}  // namespace korvane
