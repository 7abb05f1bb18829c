#include "agent/thread/thread_control.h"

#include <utility>

#include "agent/thread/run_threading.h"

namespace korvane {

using platform::NativePriority;

Thread::Control::Control(uint32_t stack) : stackBytes(stack) {
  // Takes the lock once, so that a system that has none to give refuses the whole thread.
  Synchronized made(lock);
}

void Thread::Control::identify(std::unique_ptr<platform::NativeThread> thread, bool isAdopted) {
  Synchronized hold(lock);
  native = std::move(thread);
  id = native->id();
  adopted = isAdopted;
  if (!adopted) return;
  runState = RunState::started;
  startCalled = true;
}

bool Thread::Control::isAlive() {
  Synchronized hold(lock);
  return alive();
}

platform::NativeThread* Thread::Control::joinable() {
  Synchronized hold(lock);
  return adopted ? nullptr : native.get();
}

bool Thread::Control::stopRequested() {
  Synchronized hold(lock);
  return stopState != StopState::none;
}

bool Thread::Control::stop() {
  Synchronized hold(lock);
  if (stopState != StopState::none) return false;
  stopState = StopState::requested;
  if (alive() && id == threadingOfThisRun().currentThreadId()) {
    stopState = StopState::requestedBySelf;
    return true;
  }
  if (runState == RunState::created) {
    startEvent.post();
  } else if (waiting) {
    condition.broadcast();
    waiting = false;
  }
  return false;
}

void Thread::Control::start() {
  Synchronized hold(lock);
  if (startCalled) throw ThreadException("Thread::start()", 7);
  startCalled = true;
  if (runState != RunState::created) return;
  runState = RunState::started;
  startEvent.post();
}

bool Thread::Control::wait(uint32_t timeoutMs) {
  if (stopState != StopState::none) return true;
  struct Waiting {
    bool& mark;
    ~Waiting() { mark = false; }
  };
  waiting = true;
  const Waiting end{waiting};
  return condition.wait(timeoutMs);
}

void Thread::Control::setPriority(ThreadPriority priority) {
  static constexpr NativePriority kNative[] = {NativePriority::lowest, NativePriority::normal,
                                               NativePriority::highest};
  Synchronized hold(lock);
  if (runState == RunState::ended || !native ||
      !native->setPriority(kNative[static_cast<int>(priority)]))
    throw ThreadException("Thread::setPriority(ThreadPriority)", 5);
}

void Thread::Control::setSelfDelete() {
  Synchronized hold(lock);
  selfDelete = true;
}

bool Thread::Control::finish() {
  Synchronized hold(lock);
  runState = RunState::ended;
  return selfDelete;
}

bool Thread::Control::leaveToItself() {
  Synchronized hold(lock);
  if (!alive() || adopted) return false;
  selfDelete = true;
  return true;
}

Thread::Control::Parting Thread::Control::part() {
  Synchronized hold(lock);
  selfDelete = false;
  if (runState == RunState::created) {
    stopState = StopState::requested;
    startEvent.post();
  }
  Parting parting;
  parting.adopted = adopted;
  parting.abandoned = alive() && !adopted;
  parting.native = std::move(native);
  parting.join = parting.native && !alive() && id != threadingOfThisRun().currentThreadId();
  return parting;
}

}  // namespace korvane
