#include <process.h>

#include <utility>

#include "platform/handles_win.h"
#include "platform/native.h"
#include "platform/threading.h"

namespace korvane::platform {
namespace {

WaitResult waitFor(HANDLE object, uint32_t timeoutMs) {
  switch (::WaitForSingleObject(object, timeoutMs)) {
    case WAIT_OBJECT_0:
      return WaitResult::signalled;
    case WAIT_TIMEOUT:
      return WaitResult::timedOut;
    case WAIT_ABANDONED:
      return WaitResult::abandoned;
    default:
      return WaitResult::failed;
  }
}

class WinEvent final : public Event {
 public:
  explicit WinEvent(KernelObject event) : _event(std::move(event)) {}
  bool set() override { return ::SetEvent(_event.get()) != 0; }
  bool reset() override { return ::ResetEvent(_event.get()) != 0; }
  bool pulse() override { return ::PulseEvent(_event.get()) != 0; }
  WaitResult wait(uint32_t timeoutMs) override { return waitFor(_event.get(), timeoutMs); }

 private:
  const KernelObject _event;
};

class WinSemaphore final : public Semaphore {
 public:
  explicit WinSemaphore(KernelObject semaphore) : _semaphore(std::move(semaphore)) {}
  bool release(uint32_t count) override {
    if (count == 0) return true;
    return count <= MAXLONG &&
           ::ReleaseSemaphore(_semaphore.get(), static_cast<LONG>(count), nullptr) != 0;
  }
  WaitResult wait(uint32_t timeoutMs) override { return waitFor(_semaphore.get(), timeoutMs); }

 private:
  const KernelObject _semaphore;
};

class WinMutex final : public Mutex {
 public:
  WinMutex() { ::InitializeCriticalSection(&_section); }
  ~WinMutex() override { ::DeleteCriticalSection(&_section); }
  WinMutex(const WinMutex&) = delete;
  WinMutex& operator=(const WinMutex&) = delete;
  void lock() override { ::EnterCriticalSection(&_section); }
  void unlock() override { ::LeaveCriticalSection(&_section); }

 private:
  CRITICAL_SECTION _section;
};

class WinSlot final : public ThreadLocalSlot {
 public:
  explicit WinSlot(DWORD index) : _index(index) {}
  ~WinSlot() override { ::TlsFree(_index); }
  WinSlot(const WinSlot&) = delete;
  WinSlot& operator=(const WinSlot&) = delete;
  void* get() const override { return ::TlsGetValue(_index); }
  bool set(void* value) override { return ::TlsSetValue(_index, value) != 0; }

 private:
  const DWORD _index;
};

class WinThread final : public NativeThread {
 public:
  WinThread(KernelObject thread, DWORD id) : _thread(std::move(thread)), _id(id) {}

  uint64_t id() const override { return _id; }

  bool setPriority(NativePriority priority) override {
    return waitFor(_thread.get(), 0) == WaitResult::timedOut &&
           ::SetThreadPriority(_thread.get(), static_cast<int>(priority)) != 0;
  }

  WaitResult join(uint32_t timeoutMs) override {
    if (_id == ::GetCurrentThreadId()) return WaitResult::failed;
    return waitFor(_thread.get(), timeoutMs);
  }

 private:
  const KernelObject _thread;
  const DWORD _id;
};

class AdoptedWinThread final : public NativeThread {
 public:
  AdoptedWinThread() : _thread(::OpenThread(THREAD_SET_INFORMATION, FALSE, _id)) {}
  uint64_t id() const override { return _id; }
  bool setPriority(NativePriority priority) override {
    return _thread && ::SetThreadPriority(_thread.get(), static_cast<int>(priority)) != 0;
  }
  WaitResult join(uint32_t) override { return WaitResult::failed; }

 private:
  const DWORD _id = ::GetCurrentThreadId();
  const KernelObject _thread;
};

unsigned __stdcall winThreadMain(void* argument) {
  const std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(argument));
  (*body)();
  return 0;
}

class WinThreading final : public Threading {
 public:
  std::unique_ptr<Event> createEvent(bool manualReset, bool signalled) override {
    KernelObject event(::CreateEventW(nullptr, manualReset, signalled, nullptr));
    return event ? std::make_unique<WinEvent>(std::move(event)) : nullptr;
  }

  std::unique_ptr<Semaphore> createSemaphore(uint32_t initial, uint32_t maximum) override {
    if (maximum == 0 || maximum > MAXLONG || initial > maximum) return nullptr;
    KernelObject semaphore(::CreateSemaphoreW(nullptr, static_cast<LONG>(initial),
                                              static_cast<LONG>(maximum), nullptr));
    return semaphore ? std::make_unique<WinSemaphore>(std::move(semaphore)) : nullptr;
  }

  std::unique_ptr<Mutex> createMutex() override { return std::make_unique<WinMutex>(); }

  std::unique_ptr<ThreadLocalSlot> createThreadLocalSlot() override {
    const DWORD index = ::TlsAlloc();
    if (index == TLS_OUT_OF_INDEXES) return nullptr;
    return std::make_unique<WinSlot>(index);
  }

  std::unique_ptr<NativeThread> createThread(uint32_t stackBytes,
                                             std::function<void()> body) override {
    auto argument = std::make_unique<std::function<void()>>(std::move(body));
    unsigned id = 0;
    KernelObject thread(reinterpret_cast<HANDLE>(
        ::_beginthreadex(nullptr, stackBytes, winThreadMain, argument.get(),
                         stackBytes ? STACK_SIZE_PARAM_IS_A_RESERVATION : 0, &id)));
    if (!thread) return nullptr;
    static_cast<void>(argument.release());
    return std::make_unique<WinThread>(std::move(thread), static_cast<DWORD>(id));
  }

  std::unique_ptr<NativeThread> adoptCurrentThread() override {
    return std::make_unique<AdoptedWinThread>();
  }

  uint64_t currentThreadId() override { return ::GetCurrentThreadId(); }
};

}  // namespace

std::unique_ptr<Threading> makeNativeThreading() {
  return std::make_unique<WinThreading>();
}

}  // namespace korvane::platform
