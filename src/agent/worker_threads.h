// The slots of the agent's worker threads, with the orders in which they are stopped,
// awaited and deleted.
//
// Lifetime: part of the agent object; owns the threads in its slots. A thread that outlives
// the wait for its end is left to delete itself (Thread::dispose). Threads: any thread may
// call anything; start() and the stop requests meet under the slots' lock, so no thread is
// made once the shutdown token is set. remove() and waitForEnd() are called by one shutdown
// routine at a time. Errors: a thread that cannot be asked to stop, or deleted, is event
// 10562 and does not affect the others.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>

#include "agent/thread/locks.h"

namespace korvane {

class Thread;

// In the order of the agent object's fields.
enum class Worker : uint8_t {
  update,
  logProcessing,
  bulkLogProcessing,
  comm,
  util,
  appData,
  genericAppData,
  componentUpdate,
};
inline constexpr size_t kWorkerCount = 8;

class WorkerThreads {
 public:
  // Takes the lock once: a system that has none to give refuses the whole agent.
  WorkerThreads();
  ~WorkerThreads();
  WorkerThreads(const WorkerThreads&) = delete;
  WorkerThreads& operator=(const WorkerThreads&) = delete;

  // Makes a thread, starts it and puts it into its slot. Nothing happens once the shutdown token is
  // set, or when the slot is taken; a thread that cannot be created leaves the slot empty.
  void start(Worker worker, const std::function<Thread*()>& make);

  // Requests each thread to stop, in the stop order, with a trace line after each request.
  void requestStops();

  // Waits for all of them to end, at most 31 times up to one second each, and gives what is left of
  // the count that starts at 30: -1 when the time ran out. `standardAgent` only chooses the order.
  [[nodiscard]] int waitForEnd(bool standardAgent);

  // Deletes the threads, in the order of deletion, and clears the slots.
  void remove();

 private:
  Thread* firstAlive(std::span<const Worker> order);

  Win32Mutex _lock;
  std::array<Thread*, kWorkerCount> _slots GUARDED_BY(_lock){};
};

}  // namespace korvane
