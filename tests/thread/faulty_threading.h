// A Threading over the native one whose operations can be made to fail, and whose primitives know when they
// are used after it is gone.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "platform/platform.h"

namespace korvane::testing {

struct Faults {
  void fail(const std::string& operation) {
    std::lock_guard hold(_lock);
    _failing.insert(operation);
  }
  void heal() {
    std::lock_guard hold(_lock);
    _failing.clear();
  }
  bool fails(const std::string& operation) {
    if (gone) ++usedWhenGone;
    std::lock_guard hold(_lock);
    return _failing.count(operation) != 0;
  }

  std::atomic<int> mutexesMade{0};
  std::atomic<uint32_t> lastStackBytes{0};
  std::atomic<bool> gone{false};
  std::atomic<int> usedWhenGone{0};
  // A semaphore's timed wait answers "timed out" only after units were released, as when both happen at once.
  std::atomic<bool> timeOutDuringRelease{false};

 private:
  std::mutex _lock;
  std::set<std::string> _failing;
};
using SharedFaults = std::shared_ptr<Faults>;

class FaultyEvent : public platform::Event {
 public:
  FaultyEvent(SharedFaults faults, std::unique_ptr<platform::Event> real)
      : _faults(std::move(faults)), _real(std::move(real)) {}
  bool set() override { return !_faults->fails("set") && _real->set(); }
  bool reset() override { return !_faults->fails("reset") && _real->reset(); }
  bool pulse() override { return !_faults->fails("pulse") && _real->pulse(); }
  platform::WaitResult wait(uint32_t timeoutMs) override {
    return _faults->fails("wait") ? platform::WaitResult::failed : _real->wait(timeoutMs);
  }

 private:
  SharedFaults _faults;
  std::unique_ptr<platform::Event> _real;
};

class FaultySemaphore : public platform::Semaphore {
 public:
  FaultySemaphore(SharedFaults faults, std::unique_ptr<platform::Semaphore> real)
      : _faults(std::move(faults)), _real(std::move(real)) {}
  bool release(uint32_t count) override {
    return !_faults->fails("release") && _real->release(count);
  }
  platform::WaitResult wait(uint32_t timeoutMs) override {
    if (_faults->fails("semaphoreWait")) return platform::WaitResult::failed;
    if (!_faults->timeOutDuringRelease || timeoutMs == 0) return _real->wait(timeoutMs);
    _real->wait(platform::kInfinite);
    _real->release(1);
    return platform::WaitResult::timedOut;
  }

 private:
  SharedFaults _faults;
  std::unique_ptr<platform::Semaphore> _real;
};

class FaultyMutex : public platform::Mutex {
 public:
  FaultyMutex(SharedFaults faults, std::unique_ptr<platform::Mutex> real)
      : _faults(std::move(faults)), _real(std::move(real)) {}
  void lock() override {
    _faults->fails("lock");
    _real->lock();
  }
  bool tryLock() override { return _real->tryLock(); }
  void unlock() override { _real->unlock(); }

 private:
  SharedFaults _faults;
  std::unique_ptr<platform::Mutex> _real;
};

class FaultySlot : public platform::ThreadLocalSlot {
 public:
  FaultySlot(SharedFaults faults, std::unique_ptr<platform::ThreadLocalSlot> real)
      : _faults(std::move(faults)), _real(std::move(real)) {}
  void* get() const override { return _faults->fails("slotGet") ? nullptr : _real->get(); }
  bool set(void* value) override { return !_faults->fails("slotSet") && _real->set(value); }

 private:
  SharedFaults _faults;
  std::unique_ptr<platform::ThreadLocalSlot> _real;
};

class FaultyNativeThread : public platform::NativeThread {
 public:
  FaultyNativeThread(SharedFaults faults, std::unique_ptr<platform::NativeThread> real)
      : _faults(std::move(faults)), _real(std::move(real)) {}
  uint64_t id() const override { return _real->id(); }
  bool setPriority(platform::NativePriority priority) override {
    return !_faults->fails("setPriority") && _real->setPriority(priority);
  }
  platform::WaitResult join(uint32_t timeoutMs) override { return _real->join(timeoutMs); }

 private:
  SharedFaults _faults;
  std::unique_ptr<platform::NativeThread> _real;
};

class FaultyThreading : public platform::Threading {
 public:
  FaultyThreading(SharedFaults faults, platform::Threading& real)
      : _faults(std::move(faults)), _real(real) {}

  std::unique_ptr<platform::Event> createEvent(bool manualReset, bool signalled) override {
    return make<FaultyEvent, platform::Event>(
        "createEvent", [&] { return _real.createEvent(manualReset, signalled); });
  }
  std::unique_ptr<platform::Semaphore> createSemaphore(uint32_t initial,
                                                       uint32_t maximum) override {
    return make<FaultySemaphore, platform::Semaphore>(
        "createSemaphore", [&] { return _real.createSemaphore(initial, maximum); });
  }
  std::unique_ptr<platform::Mutex> createMutex() override {
    ++_faults->mutexesMade;
    return make<FaultyMutex, platform::Mutex>("createMutex", [&] { return _real.createMutex(); });
  }
  std::unique_ptr<platform::ThreadLocalSlot> createThreadLocalSlot() override {
    return make<FaultySlot, platform::ThreadLocalSlot>(
        "createThreadLocalSlot", [&] { return _real.createThreadLocalSlot(); });
  }
  std::unique_ptr<platform::NativeThread> createThread(uint32_t stackBytes,
                                                       std::function<void()> body) override {
    _faults->lastStackBytes = stackBytes;
    return make<FaultyNativeThread, platform::NativeThread>(
        "createThread", [&] { return _real.createThread(stackBytes, std::move(body)); });
  }
  std::unique_ptr<platform::NativeThread> adoptCurrentThread() override {
    return make<FaultyNativeThread, platform::NativeThread>(
        "adoptCurrentThread", [&] { return _real.adoptCurrentThread(); });
  }
  uint64_t currentThreadId() override { return _real.currentThreadId(); }

 private:
  template <class Wrapper, class Interface, class Make>
  std::unique_ptr<Interface> make(const char* operation, Make makeReal) {
    if (_faults->fails(operation)) return nullptr;
    return std::make_unique<Wrapper>(_faults, makeReal());
  }

  SharedFaults _faults;
  platform::Threading& _real;
};

// Makes a faulty Threading the one in use for its own lifetime.
class FaultyPlatform {
 public:
  FaultyPlatform()
      : _threading(faults, platform::current().threading), _platform(withThreading(_threading)) {
    platform::setCurrent(&_platform);
  }
  ~FaultyPlatform() {
    platform::setCurrent(nullptr);
    faults->gone = true;
  }

  SharedFaults faults = std::make_shared<Faults>();

 private:
  static platform::Platform withThreading(platform::Threading& threading) {
    platform::Platform& base = platform::current();
    return {base.clock,     threading,    base.files,      base.registry,       base.devices,
            base.processes, base.sockets, base.systemInfo, base.sharedLibraries};
  }

  FaultyThreading _threading;
  platform::Platform _platform;
};

}  // namespace korvane::testing
