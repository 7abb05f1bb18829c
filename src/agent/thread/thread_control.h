// The state of a Thread, shared between the object and its operating-system thread (see thread.h):
// each owns a share, so that it is there for whoever of the two comes last. Any thread may call any
// operation.
#pragma once

#include <exception>
#include <memory>

#include "agent/thread/thread.h"
#include "platform/threading.h"

namespace korvane {

enum class StopState { none = 0, requested = 1, requestedBySelf = 2 };
// `suspended` is never set; it counts as alive.
enum class RunState { created = 0, started = 1, suspended = 2, ended = 3 };

struct Thread::Control {
  explicit Control(uint32_t stack);

  // What ~Thread does with the operating-system thread.
  struct Parting {
    std::unique_ptr<platform::NativeThread> native;
    bool join = false;  // its body has ended or will not run, and it is not the caller
    bool abandoned = false;
    bool adopted = false;
  };

  void identify(std::unique_ptr<platform::NativeThread> thread, bool isAdopted);
  bool isAlive();
  // The operating-system thread, for as long as the Thread is there; null for an adopted one.
  platform::NativeThread* joinable();
  bool stopRequested();
  // True when the caller is the thread itself and must raise ThreadDeathException.
  [[nodiscard]] bool stop();
  void start();
  [[nodiscard]] bool wait(uint32_t timeoutMs) REQUIRES(lock);
  void setPriority(ThreadPriority priority);
  void setSelfDelete();
  // The thread's last act on its object; true when the caller is to delete the object.
  [[nodiscard]] bool finish();
  // True when the object will delete itself at its end; false when the caller may delete it.
  [[nodiscard]] bool leaveToItself();
  Parting part();

  std::unique_ptr<platform::NativeThread> native GUARDED_BY(lock);
  uint64_t id GUARDED_BY(lock) = 0;
  const uint32_t stackBytes;
  RecursiveMutex lock;
  ThreadCondition condition{lock};
  ThreadEvent startEvent;
  ThreadEvent aliveEvent;
  StopToken stopToken;
  bool waiting GUARDED_BY(lock) = false;
  StopState stopState GUARDED_BY(lock) = StopState::none;
  RunState runState GUARDED_BY(lock) = RunState::created;
  bool selfDelete GUARDED_BY(lock) = false;
  bool adopted GUARDED_BY(lock) = false;
  bool startCalled GUARDED_BY(lock) = false;
  // Why the new thread could not register itself; written before aliveEvent is posted, read after
  // it.
  std::exception_ptr failure;

 private:
  bool alive() const REQUIRES(lock) {
    return runState == RunState::started || runState == RunState::suspended;
  }
};

}  // namespace korvane
