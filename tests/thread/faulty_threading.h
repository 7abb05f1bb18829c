// A Threading over the native one whose operations can be made to fail, and whose primitives know
// when they are used after it is gone.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "platform/fake/fake_platform.h"
#include "platform/fake/forwarding.h"

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
  // A semaphore's timed wait answers "timed out" only after units were released, as when
  // both happen at once.
  std::atomic<bool> timeOutDuringRelease{false};

 private:
  std::mutex _lock;
  std::set<std::string> _failing;
};
using SharedFaults = std::shared_ptr<Faults>;

template <class Interface>
class Faulty : public Interface {
 public:
  Faulty(SharedFaults faults, std::unique_ptr<Interface> real)
      : _faults(std::move(faults)), _real(std::move(real)) {}

 protected:
  SharedFaults _faults;
  std::unique_ptr<Interface> _real;
};

struct FaultyEvent : Faulty<platform::Event> {
  using Faulty::Faulty;
  bool set() override { return !_faults->fails("set") && _real->set(); }
  bool reset() override { return !_faults->fails("reset") && _real->reset(); }
  bool pulse() override { return !_faults->fails("pulse") && _real->pulse(); }
  platform::WaitResult wait(uint32_t timeoutMs) override {
    return _faults->fails("wait") ? platform::WaitResult::failed : _real->wait(timeoutMs);
  }
};

struct FaultySemaphore : Faulty<platform::Semaphore> {
  using Faulty::Faulty;
  bool release(uint32_t n) override { return !_faults->fails("release") && _real->release(n); }
  platform::WaitResult wait(uint32_t timeoutMs) override {
    if (_faults->fails("semaphoreWait")) return platform::WaitResult::failed;
    if (!_faults->timeOutDuringRelease || timeoutMs == 0) return _real->wait(timeoutMs);
    _real->wait(platform::kInfinite);
    _real->release(1);
    return platform::WaitResult::timedOut;
  }
};

struct FaultyMutex : Faulty<platform::Mutex> {
  using Faulty::Faulty;
  void lock() override {
    _faults->fails("lock");
    _real->lock();
  }
  void unlock() override { _real->unlock(); }
};

struct FaultySlot : Faulty<platform::ThreadLocalSlot> {
  using Faulty::Faulty;
  void* get() const override { return _faults->fails("slotGet") ? nullptr : _real->get(); }
  bool set(void* value) override { return !_faults->fails("slotSet") && _real->set(value); }
};

struct FaultyNativeThread : Faulty<platform::NativeThread> {
  using Faulty::Faulty;
  uint64_t id() const override { return _real->id(); }
  bool setPriority(platform::NativePriority priority) override {
    return !_faults->fails("setPriority") && _real->setPriority(priority);
  }
  platform::WaitResult join(uint32_t timeoutMs) override { return _real->join(timeoutMs); }
};

class FaultyThreading : public platform::ForwardingThreading {
 public:
  FaultyThreading(SharedFaults faults, platform::Threading& real)
      : ForwardingThreading(real), _faults(std::move(faults)) {}

  std::unique_ptr<platform::Event> createEvent(bool manualReset, bool signalled) override {
    return wrap<FaultyEvent>("createEvent", _to.createEvent(manualReset, signalled));
  }
  std::unique_ptr<platform::Semaphore> createSemaphore(uint32_t initial, uint32_t max) override {
    return wrap<FaultySemaphore>("createSemaphore", _to.createSemaphore(initial, max));
  }
  std::unique_ptr<platform::Mutex> createMutex() override {
    ++_faults->mutexesMade;
    return wrap<FaultyMutex>("createMutex", _to.createMutex());
  }
  std::unique_ptr<platform::ThreadLocalSlot> createThreadLocalSlot() override {
    return wrap<FaultySlot>("createThreadLocalSlot", _to.createThreadLocalSlot());
  }
  std::unique_ptr<platform::NativeThread> createThread(uint32_t stackBytes,
                                                       std::function<void()> body) override {
    _faults->lastStackBytes = stackBytes;
    if (_faults->fails("createThread")) return nullptr;
    return wrap<FaultyNativeThread>("", _to.createThread(stackBytes, std::move(body)));
  }
  std::unique_ptr<platform::NativeThread> adoptCurrentThread() override {
    return wrap<FaultyNativeThread>("adoptCurrentThread", _to.adoptCurrentThread());
  }

 private:
  template <class Wrapper, class Interface>
  std::unique_ptr<Interface> wrap(const char* operation, std::unique_ptr<Interface> real) {
    if (_faults->fails(operation)) return nullptr;
    return std::make_unique<Wrapper>(_faults, std::move(real));
  }

  SharedFaults _faults;
};

// Begins a run on a faulty Threading for its own lifetime.
class FaultyPlatform {
 public:
  ~FaultyPlatform() {
    _current.reset();
    faults->gone = true;
  }

  SharedFaults faults = std::make_shared<Faults>();

 private:
  platform::FakePlatform _fakes;
  FaultyThreading _threading{faults, _fakes.platform().threading};
  platform::Platform _platform{_fakes.clock,    _threading,        _fakes.files,
                               _fakes.registry, _fakes.devices,    _fakes.processes,
                               _fakes.sockets,  _fakes.systemInfo, _fakes.libraries,
                               _fakes.pipes,    _fakes.rights};
  std::optional<platform::CurrentPlatform> _current{_platform};
};

}  // namespace korvane::testing
