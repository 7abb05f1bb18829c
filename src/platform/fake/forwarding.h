// Wrappers that hand every call on, one for each capability: a test derives from one and
// overrides the few operations that it wants to fail, count or change. Each refers to the
// object it wraps, which must outlive it; thread-safe as far as that is. Those of the files
// are in forwarding_files.h.
#pragma once

#include <utility>

#include "platform/clock.h"
#include "platform/driver_device.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/registry.h"
#include "platform/shared_library.h"
#include "platform/sockets.h"
#include "platform/threading.h"

namespace korvane::platform {

class ForwardingClock : public Clock {
 public:
  explicit ForwardingClock(Clock& to) : _to(to) {}
  int64_t monotonicMs() override { return _to.monotonicMs(); }
  int64_t wallMs() override { return _to.wallMs(); }

 protected:
  Clock& _to;
};

class ForwardingThreading : public Threading {
 public:
  explicit ForwardingThreading(Threading& to) : _to(to) {}
  std::unique_ptr<Event> createEvent(bool manualReset, bool signalled) override {
    return _to.createEvent(manualReset, signalled);
  }
  std::unique_ptr<Semaphore> createSemaphore(uint32_t initial, uint32_t maximum) override {
    return _to.createSemaphore(initial, maximum);
  }
  std::unique_ptr<Mutex> createMutex() override { return _to.createMutex(); }
  std::unique_ptr<ThreadLocalSlot> createThreadLocalSlot() override {
    return _to.createThreadLocalSlot();
  }
  std::unique_ptr<NativeThread> createThread(uint32_t stack, std::function<void()> body) override {
    return _to.createThread(stack, std::move(body));
  }
  std::unique_ptr<NativeThread> adoptCurrentThread() override { return _to.adoptCurrentThread(); }
  uint64_t currentThreadId() override { return _to.currentThreadId(); }

 protected:
  Threading& _to;
};

class ForwardingRegistry : public Registry {
 public:
  explicit ForwardingRegistry(Registry& to) : _to(to) {}
  uint32_t readString(std::string_view key, std::string_view name, STRING& out) override {
    return _to.readString(key, name, out);
  }
  uint32_t readDword(std::string_view key, std::string_view name, uint32_t& out) override {
    return _to.readDword(key, name, out);
  }
  uint32_t writeString(std::string_view key, std::string_view name, const STRING& value) override {
    return _to.writeString(key, name, value);
  }
  uint32_t writeDword(std::string_view key, std::string_view name, uint32_t value) override {
    return _to.writeDword(key, name, value);
  }
  uint32_t createKey(std::string_view key) override { return _to.createKey(key); }
  uint32_t deleteKey(std::string_view key) override { return _to.deleteKey(key); }
  std::string problem() override { return _to.problem(); }

 protected:
  Registry& _to;
};

class ForwardingDevices : public Devices {
 public:
  explicit ForwardingDevices(Devices& to) : _to(to) {}
  uint32_t open(const std::string& name, std::unique_ptr<Device>& out) override {
    return _to.open(name, out);
  }

 protected:
  Devices& _to;
};

class ForwardingProcesses : public Processes {
 public:
  explicit ForwardingProcesses(Processes& to) : _to(to) {}
  uint32_t start(const std::string& program, const std::string& arguments,
                 std::unique_ptr<Process>& out) override {
    return _to.start(program, arguments, out);
  }
  bool isRunning(const std::string& imageName) override { return _to.isRunning(imageName); }
  uint64_t currentId() override { return _to.currentId(); }
  std::string fileName(const std::string& baseName) const override {
    return _to.fileName(baseName);
  }

 protected:
  Processes& _to;
};

class ForwardingSockets : public Sockets {
 public:
  explicit ForwardingSockets(Sockets& to) : _to(to) {}
  int startup() override { return _to.startup(); }
  void cleanup() override { _to.cleanup(); }
  int createTcp(std::unique_ptr<Socket>& out) override { return _to.createTcp(out); }
  int resolve(const std::string& host, std::vector<std::string>& out) override {
    return _to.resolve(host, out);
  }
  void shutdownForeign(uint64_t handle) override { _to.shutdownForeign(handle); }
  void closeForeign(uint64_t handle) override { _to.closeForeign(handle); }

 protected:
  Sockets& _to;
};

class ForwardingLibraries : public SharedLibraries {
 public:
  explicit ForwardingLibraries(SharedLibraries& to) : _to(to) {}
  uint32_t load(const std::string& path, std::unique_ptr<SharedLibrary>& out,
                std::string& detail) override {
    return _to.load(path, out, detail);
  }
  std::string fileName(const std::string& baseName) const override {
    return _to.fileName(baseName);
  }

 protected:
  SharedLibraries& _to;
};

}  // namespace korvane::platform
