// The scheduler under SimThreading: who has the baton, who waits for what until when, and what time
// it is. Used by SimThreading's objects only. All members are touched by the thread that has the
// baton.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/fake/seeded_random.h"
#include "platform/fake/sim_context.h"
#include "platform/fake/sim_threading.h"

namespace korvane::platform {

struct SimThread;
using SimQueue = std::vector<SimThread*>;

struct SimThread {
  enum class State { runnable, blocked, ended };
  enum class Wake { signalled, timedOut, failed };

  uint64_t id = 0;
  State state = State::runnable;
  std::unique_ptr<SimContext> context;  // null for an adopted one
  std::map<uint64_t, void*> slots;      // its values of thread-local slots, by their numbers
  // While runnable: where it stands among those that are.
  size_t place = 0;
  // While blocked:
  SimQueue* queue = nullptr;
  const char* waitsFor = "";
  bool canFail = true;
  int64_t deadline = 0;
  Wake wake = Wake::signalled;
  SimQueue joiners;
};

class SimScheduler {
 public:
  static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();

  SimScheduler(uint64_t seed, SimThreading::DeadlockHandler handler);

  SimThread& self();
  // The calling thread as a thread that cannot be joined.
  std::shared_ptr<SimThread> adopt();
  int64_t now() const { return _now; }
  uint64_t hash() const { return _hash; }
  uint64_t switches() const { return _switches; }
  // A number for a thread-local slot.
  uint64_t newSlot() { return ++_lastSlot; }

  // Blocks the calling thread in `queue` until wake() or the time-out.
  SimThread::Wake block(SimQueue& queue, int64_t timeoutMs, const char* waitsFor,
                        bool canFail = true);
  // Makes one thread of the queue, drawn by the seed, or all of them runnable; the caller
  // keeps the baton.
  void wakeOne(SimQueue& queue);
  void wakeAll(SimQueue& queue);
  // Lets another thread run, or not.
  void yield();
  // The same at one of n occasions.
  void maybeYield();
  void yieldOnceIn(uint64_t n) { _yieldOnceIn = n; }

  std::shared_ptr<SimThread> start(const std::shared_ptr<SimScheduler>& keep, uint32_t stackBytes,
                                   std::function<void()> body);
  // How many threads have not ended, the first one left out.
  size_t others() const { return _threads.size() - 1; }
  // Runs the others until all have ended; aborts the program when they do not.
  void drain();
  // What each thread waits for.
  std::string waits() const;

 private:
  // Waits until the threads that have ended are gone from the system too, what they own as
  // threads with them.
  void reap();
  void add(const std::shared_ptr<SimThread>& thread);
  void makeRunnable(SimThread& thread);
  void notRunnable(SimThread& thread);
  SimThread& threadMain(SimThread& thread, const std::function<void()>& body);
  void pass(SimThread& from);
  SimThread& choose();
  void wake(SimThread& thread, SimThread::Wake how);
  bool advanceTime();
  void reportDeadlock();
  uint64_t draw(uint64_t bound);

  const std::unique_ptr<Threading> _native;
  const SimThreading::DeadlockHandler _handler;
  std::map<uint64_t, std::shared_ptr<SimThread>> _threads;  // all that have not ended, by id
  std::vector<std::shared_ptr<SimThread>> _ended;           // may not be gone from the system yet
  SimQueue _runnable;
  // Of the waits that have a limit, by that and the thread's id.
  std::map<std::pair<int64_t, uint64_t>, SimThread*> _deadlines;
  SeededRandom _random;
  uint64_t _lastId = 0;
  uint64_t _lastSlot = 0;
  int64_t _now = 1000;
  uint64_t _hash = 14695981039346656037u;
  uint64_t _switches = 0;
  uint64_t _yieldOnceIn = 1;
};

}  // namespace korvane::platform
