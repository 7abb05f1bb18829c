#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <deque>
#include <utility>

#include "platform/monitor_posix.h"
#include "platform/native.h"

namespace korvane::platform {
namespace {

// Every waiter stands in a queue of its event and is released one by one, so that a pulse reaches
// exactly those that wait and a set() that wakes a waiter of an auto-reset event cannot be taken by
// a later one.
class PosixEvent final : public Event {
 public:
  PosixEvent(bool manualReset, bool signalled) : _manualReset(manualReset), _signalled(signalled) {}

  bool set() override {
    MonitorLock lock(_monitor);
    if (_manualReset || _waiters.empty()) _signalled = true;
    release(lock);
    return true;
  }

  bool reset() override {
    MonitorLock lock(_monitor);
    _signalled = false;
    return true;
  }

  bool pulse() override {
    MonitorLock lock(_monitor);
    _signalled = false;
    release(lock);
    return true;
  }

  WaitResult wait(uint32_t timeoutMs) override {
    MonitorLock lock(_monitor);
    if (_signalled) {
      _signalled = _manualReset;
      return WaitResult::signalled;
    }
    if (timeoutMs == 0) return WaitResult::timedOut;
    bool released = false;
    _waiters.push_back(&released);
    const Deadline deadline(timeoutMs);
    while (!released && lock.waitUntil(deadline)) continue;
    if (released) return WaitResult::signalled;
    std::erase(_waiters, &released);
    return WaitResult::timedOut;
  }

 private:
  void release(MonitorLock& lock) REQUIRES(_monitor) {
    const size_t count = _manualReset ? _waiters.size() : std::min<size_t>(1, _waiters.size());
    for (size_t i = 0; i < count; ++i) {
      *_waiters.front() = true;
      _waiters.pop_front();
    }
    lock.notifyAll();
  }

  Monitor _monitor;
  const bool _manualReset;
  bool _signalled GUARDED_BY(_monitor);
  std::deque<bool*> _waiters GUARDED_BY(_monitor);
};

class PosixSemaphore final : public Semaphore {
 public:
  PosixSemaphore(uint32_t initial, uint32_t maximum) : _maximum(maximum), _count(initial) {}

  bool release(uint32_t count) override {
    MonitorLock lock(_monitor);
    if (count > _maximum - _count) return false;
    _count += count;
    lock.notifyAll();
    return true;
  }

  WaitResult wait(uint32_t timeoutMs) override {
    const Deadline deadline(timeoutMs);
    MonitorLock lock(_monitor);
    while (_count == 0)
      if (timeoutMs == 0 || !lock.waitUntil(deadline)) {
        if (_count == 0) return WaitResult::timedOut;
        break;
      }
    --_count;
    return WaitResult::signalled;
  }

 private:
  Monitor _monitor;
  const uint32_t _maximum;
  uint32_t _count GUARDED_BY(_monitor);
};

class PosixMutex final : public Mutex {
 public:
  PosixMutex() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&_mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
  }
  ~PosixMutex() override { pthread_mutex_destroy(&_mutex); }

  void lock() override { pthread_mutex_lock(&_mutex); }
  void unlock() override { pthread_mutex_unlock(&_mutex); }

 private:
  pthread_mutex_t _mutex;
};

class PosixSlot final : public ThreadLocalSlot {
 public:
  explicit PosixSlot(pthread_key_t key) : _key(key) {}
  ~PosixSlot() override { pthread_key_delete(_key); }
  void* get() const override { return pthread_getspecific(_key); }
  bool set(void* value) override { return pthread_setspecific(_key, value) == 0; }

 private:
  pthread_key_t _key;
};

uint64_t threadId() {
  return static_cast<uint64_t>(gettid());
}

bool setNice(uint64_t id, int baseNice, NativePriority priority) {
  const int nice = baseNice + (priority == NativePriority::lowest ? 5 : 0);
  return setpriority(PRIO_PROCESS, static_cast<id_t>(id), nice) == 0;
}

// What a thread and its handle share; the last of the two frees it.
struct ThreadState {
  std::function<void()> body;
  Monitor monitor;
  uint64_t id GUARDED_BY(monitor) = 0;
  bool ended GUARDED_BY(monitor) = false;
};

class PosixThread final : public NativeThread {
 public:
  PosixThread(pthread_t handle, std::shared_ptr<ThreadState> state, uint64_t id, int baseNice)
      : _handle(handle), _state(std::move(state)), _id(id), _baseNice(baseNice) {}

  ~PosixThread() override {
    if (!_joined) pthread_detach(_handle);
  }

  uint64_t id() const override { return _id; }

  bool setPriority(NativePriority priority) override {
    MonitorLock lock(_state->monitor);
    return !_state->ended && setNice(_id, _baseNice, priority);
  }

  WaitResult join(uint32_t timeoutMs) override {
    if (pthread_equal(_handle, pthread_self())) return WaitResult::failed;
    const Deadline deadline(timeoutMs);
    {
      MonitorLock lock(_state->monitor);
      while (!_state->ended)
        if (timeoutMs == 0 || !lock.waitUntil(deadline)) {
          if (!_state->ended) return WaitResult::timedOut;
          break;
        }
    }
    MonitorLock lock(_joinMonitor);
    if (!_joined) pthread_join(_handle, nullptr);
    _joined = true;
    return WaitResult::signalled;
  }

 private:
  const pthread_t _handle;
  const std::shared_ptr<ThreadState> _state;
  const uint64_t _id;
  const int _baseNice;
  Monitor _joinMonitor;
  bool _joined GUARDED_BY(_joinMonitor) = false;
};

class AdoptedThread final : public NativeThread {
 public:
  explicit AdoptedThread(int baseNice) : _id(threadId()), _baseNice(baseNice) {}
  uint64_t id() const override { return _id; }
  bool setPriority(NativePriority priority) override { return setNice(_id, _baseNice, priority); }
  WaitResult join(uint32_t) override { return WaitResult::failed; }

 private:
  const uint64_t _id;
  const int _baseNice;
};

void* threadMain(void* argument) {
  const std::unique_ptr<std::shared_ptr<ThreadState>> owned(
      static_cast<std::shared_ptr<ThreadState>*>(argument));
  ThreadState& state = **owned;
  {
    MonitorLock lock(state.monitor);
    state.id = threadId();
    lock.notifyAll();
  }
  state.body();
  state.body = nullptr;
  MonitorLock lock(state.monitor);
  state.ended = true;
  lock.notifyAll();
  return nullptr;
}

size_t usableStackSize(uint32_t asked) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t size = std::max<size_t>(asked, static_cast<size_t>(PTHREAD_STACK_MIN));
  return (size + page - 1) / page * page;
}

class PosixThreading final : public Threading {
 public:
  std::unique_ptr<Event> createEvent(bool manualReset, bool signalled) override {
    return std::make_unique<PosixEvent>(manualReset, signalled);
  }

  std::unique_ptr<Semaphore> createSemaphore(uint32_t initial, uint32_t maximum) override {
    if (maximum == 0 || initial > maximum) return nullptr;
    return std::make_unique<PosixSemaphore>(initial, maximum);
  }

  std::unique_ptr<Mutex> createMutex() override { return std::make_unique<PosixMutex>(); }

  std::unique_ptr<ThreadLocalSlot> createThreadLocalSlot() override {
    pthread_key_t key;
    if (pthread_key_create(&key, nullptr) != 0) return nullptr;
    return std::make_unique<PosixSlot>(key);
  }

  std::unique_ptr<NativeThread> createThread(uint32_t stackBytes,
                                             std::function<void()> body) override {
    auto state = std::make_shared<ThreadState>();
    state->body = std::move(body);
    auto argument = std::make_unique<std::shared_ptr<ThreadState>>(state);
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    if (stackBytes) pthread_attr_setstacksize(&attributes, usableStackSize(stackBytes));
    pthread_t handle;
    const int error = pthread_create(&handle, &attributes, threadMain, argument.get());
    pthread_attr_destroy(&attributes);
    if (error) return nullptr;
    static_cast<void>(argument.release());
    const Deadline never(kInfinite);
    uint64_t id = 0;
    {
      MonitorLock lock(state->monitor);
      while (state->id == 0) lock.waitUntil(never);
      id = state->id;
    }
    return std::make_unique<PosixThread>(handle, std::move(state), id, _baseNice);
  }

  std::unique_ptr<NativeThread> adoptCurrentThread() override {
    return std::make_unique<AdoptedThread>(_baseNice);
  }

  uint64_t currentThreadId() override { return threadId(); }

 private:
  const int _baseNice = getpriority(PRIO_PROCESS, 0);
};

}  // namespace

std::unique_ptr<Threading> makeNativeThreading() {
  return std::make_unique<PosixThreading>();
}

}  // namespace korvane::platform
