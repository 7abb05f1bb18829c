// The scheduler under SimThreading: who has the baton, who waits for what until when, and what time
// it is. Used by SimThreading's objects only. All members are touched by the thread that has the
// baton; passing it through a native event orders that for the memory model.
#pragma once

#include <cstdint>
#include <limits>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "platform/fake/sim_threading.h"

namespace korvane::platform {

struct SimThread {
  enum class State { runnable, blocked, ended };
  enum class Wake { signalled, timedOut, failed };

  uint64_t id = 0;
  State state = State::runnable;
  std::unique_ptr<Event> baton;  // native, auto-reset
  std::unique_ptr<NativeThread> native;
  // While blocked:
  std::list<SimThread*>* queue = nullptr;
  const char* waitsFor = "";
  bool canFail = true;
  int64_t deadline = 0;
  Wake wake = Wake::signalled;
  std::list<SimThread*> joiners;
};

using SimQueue = std::list<SimThread*>;

class SimScheduler {
 public:
  static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

  SimScheduler(uint64_t seed, SimThreading::DeadlockHandler handler);

  Threading& native() { return *_native; }
  SimThread& self();
  // The calling thread as a thread that cannot be joined.
  std::shared_ptr<SimThread> adopt();
  int64_t now() const { return _now; }
  uint64_t hash() const { return _hash; }
  uint64_t switches() const { return _switches; }

  // Blocks the calling thread in `queue` until wake() or the time-out.
  SimThread::Wake block(SimQueue& queue, int64_t timeoutMs, const char* waitsFor,
                        bool canFail = true);
  // Makes one thread of the queue, drawn by the seed, or all of them runnable; the caller
  // keeps the baton.
  void wakeOne(SimQueue& queue);
  void wakeAll(SimQueue& queue);
  // Lets another thread run, or not.
  void yield();

  std::shared_ptr<SimThread> start(const std::shared_ptr<SimScheduler>& keep, uint32_t stackBytes,
                                   std::function<void()> body);
  // Runs the others until all have ended; aborts the program when they do not.
  void drain();

 private:
  // Waits until the threads that have ended are gone from the system too, what they own as
  // threads with them.
  void reap();
  void threadMain(SimThread& thread, const std::function<void()>& body);
  void pass(SimThread& from);
  SimThread& choose();
  void wake(SimThread& thread, SimThread::Wake how);
  bool advanceTime();
  void reportDeadlock();
  std::string waits() const;
  uint64_t draw(uint64_t bound);

  const std::unique_ptr<Threading> _native;
  const SimThreading::DeadlockHandler _handler;
  std::vector<std::shared_ptr<SimThread>> _threads;  // all that have not ended
  std::vector<std::shared_ptr<SimThread>> _ended;    // but may not be gone from the system yet
  uint64_t _random;
  uint64_t _lastId = 0;
  int64_t _now = 1000;
  uint64_t _hash = 14695981039346656037u;
  uint64_t _switches = 0;
};

}  // namespace korvane::platform
