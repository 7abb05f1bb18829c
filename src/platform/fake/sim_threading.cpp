#include "platform/fake/sim_threading.h"

#include <utility>

#include "platform/fake/manual_clock.h"
#include "platform/fake/sim_scheduler.h"

namespace korvane::platform {
namespace {

using SchedulerPtr = std::shared_ptr<SimScheduler>;

int64_t limitOf(uint32_t timeoutMs) {
  return timeoutMs == kInfinite ? SimScheduler::kNever : int64_t{timeoutMs};
}

WaitResult resultOf(SimThread::Wake wake) {
  switch (wake) {
    case SimThread::Wake::signalled:
      return WaitResult::signalled;
    case SimThread::Wake::timedOut:
      return WaitResult::timedOut;
    case SimThread::Wake::failed:
      break;
  }
  return WaitResult::failed;
}

class SimEvent final : public Event {
 public:
  SimEvent(SchedulerPtr scheduler, bool manualReset, bool signalled)
      : _scheduler(std::move(scheduler)), _manualReset(manualReset), _signalled(signalled) {}

  bool set() override {
    if (_manualReset || _waiters.empty()) _signalled = true;
    release();
    return true;
  }

  bool reset() override {
    _signalled = false;
    return true;
  }

  bool pulse() override {
    _signalled = false;
    release();
    return true;
  }

  WaitResult wait(uint32_t timeoutMs) override {
    _scheduler->self();
    if (_signalled) {
      _signalled = _manualReset;
      return WaitResult::signalled;
    }
    if (timeoutMs == 0) return WaitResult::timedOut;
    return resultOf(_scheduler->block(_waiters, limitOf(timeoutMs), "an event"));
  }

 private:
  void release() {
    if (_manualReset)
      _scheduler->wakeAll(_waiters);
    else
      _scheduler->wakeOne(_waiters);
  }

  const SchedulerPtr _scheduler;
  const bool _manualReset;
  bool _signalled;
  SimQueue _waiters;
};

class SimSemaphore final : public Semaphore {
 public:
  SimSemaphore(SchedulerPtr scheduler, uint32_t initial, uint32_t maximum)
      : _scheduler(std::move(scheduler)), _maximum(maximum), _count(initial) {}

  bool release(uint32_t count) override {
    if (count > _maximum - _count) return false;
    _count += count;
    for (; _count > 0 && !_waiters.empty(); --_count) _scheduler->wakeOne(_waiters);
    return true;
  }

  WaitResult wait(uint32_t timeoutMs) override {
    _scheduler->self();
    if (_count > 0) {
      --_count;
      return WaitResult::signalled;
    }
    if (timeoutMs == 0) return WaitResult::timedOut;
    return resultOf(_scheduler->block(_waiters, limitOf(timeoutMs), "a semaphore"));
  }

 private:
  const SchedulerPtr _scheduler;
  const uint32_t _maximum;
  uint32_t _count;
  SimQueue _waiters;
};

class SimMutex final : public Mutex {
 public:
  explicit SimMutex(SchedulerPtr scheduler) : _scheduler(std::move(scheduler)) {}

  void lock() override {
    _scheduler->maybeYield();
    SimThread& self = _scheduler->self();
    while (_depth > 0 && _owner != &self)
      _scheduler->block(_waiters, SimScheduler::kNever, "a mutex", false);
    _owner = &self;
    ++_depth;
  }

  void unlock() override {
    if (--_depth > 0) return;
    _owner = nullptr;
    _scheduler->wakeAll(_waiters);
    _scheduler->maybeYield();
  }

 private:
  const SchedulerPtr _scheduler;
  const SimThread* _owner = nullptr;
  int _depth = 0;
  SimQueue _waiters;
};

class SimSlot final : public ThreadLocalSlot {
 public:
  explicit SimSlot(SchedulerPtr scheduler)
      : _scheduler(std::move(scheduler)), _number(_scheduler->newSlot()) {}

  void* get() const override {
    const auto& slots = _scheduler->self().slots;
    const auto found = slots.find(_number);
    return found == slots.end() ? nullptr : found->second;
  }
  bool set(void* value) override {
    _scheduler->self().slots[_number] = value;
    return true;
  }

 private:
  const SchedulerPtr _scheduler;
  const uint64_t _number;
};

class SimNativeThread final : public NativeThread {
 public:
  SimNativeThread(SchedulerPtr scheduler, std::shared_ptr<SimThread> thread)
      : _scheduler(std::move(scheduler)), _thread(std::move(thread)) {}

  uint64_t id() const override { return _thread->id; }
  bool setPriority(NativePriority) override { return _thread->state != SimThread::State::ended; }

  WaitResult join(uint32_t timeoutMs) override {
    if (&_scheduler->self() == _thread.get() || !_thread->context) return WaitResult::failed;
    if (_thread->state != SimThread::State::ended) {
      if (timeoutMs == 0) return WaitResult::timedOut;
      const auto wake = _scheduler->block(_thread->joiners, limitOf(timeoutMs), "a thread's end");
      if (wake != SimThread::Wake::signalled) return resultOf(wake);
    }
    _thread->context->join();
    return WaitResult::signalled;
  }

 private:
  const SchedulerPtr _scheduler;
  const std::shared_ptr<SimThread> _thread;
};

}  // namespace

struct SimThreading::Time final : Clock {
  explicit Time(SimScheduler& source) : scheduler(source) {}
  int64_t monotonicMs() override { return scheduler.now(); }
  int64_t wallMs() override { return wallOffset + scheduler.now(); }

  SimScheduler& scheduler;
  int64_t wallOffset = ManualClock::kStartWallMs;
};

SimThreading::SimThreading(uint64_t seed, DeadlockHandler handler)
    : _scheduler(std::make_shared<SimScheduler>(seed, std::move(handler))),
      _time(std::make_unique<Time>(*_scheduler)) {}

SimThreading::~SimThreading() {
  _scheduler->drain();
}

Clock& SimThreading::clock() {
  return *_time;
}

void SimThreading::setWall(int64_t milliseconds) {
  _time->wallOffset = milliseconds - _scheduler->now();
}

void SimThreading::yieldOnceIn(uint32_t n) {
  _scheduler->yieldOnceIn(n);
}

void SimThreading::runFor(int64_t milliseconds) {
  SimQueue nobody;
  if (milliseconds > 0) _scheduler->block(nobody, milliseconds, "time to pass");
}

uint64_t SimThreading::scheduleHash() const {
  return _scheduler->hash();
}
std::string SimThreading::waits() const {
  return _scheduler->waits();
}

uint64_t SimThreading::switches() const {
  return _scheduler->switches();
}

std::unique_ptr<Event> SimThreading::createEvent(bool manualReset, bool signalled) {
  return std::make_unique<SimEvent>(_scheduler, manualReset, signalled);
}

std::unique_ptr<Semaphore> SimThreading::createSemaphore(uint32_t initial, uint32_t maximum) {
  if (maximum == 0 || initial > maximum) return nullptr;
  return std::make_unique<SimSemaphore>(_scheduler, initial, maximum);
}

std::unique_ptr<Mutex> SimThreading::createMutex() {
  return std::make_unique<SimMutex>(_scheduler);
}

std::unique_ptr<ThreadLocalSlot> SimThreading::createThreadLocalSlot() {
  return std::make_unique<SimSlot>(_scheduler);
}

std::unique_ptr<NativeThread> SimThreading::createThread(uint32_t stackBytes,
                                                         std::function<void()> body) {
  auto thread = _scheduler->start(_scheduler, stackBytes, std::move(body));
  if (!thread) return nullptr;
  return std::make_unique<SimNativeThread>(_scheduler, std::move(thread));
}

std::unique_ptr<NativeThread> SimThreading::adoptCurrentThread() {
  return std::make_unique<SimNativeThread>(_scheduler, _scheduler->adopt());
}

uint64_t SimThreading::currentThreadId() {
  return _scheduler->self().id;
}

}  // namespace korvane::platform
