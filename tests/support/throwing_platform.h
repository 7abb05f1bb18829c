// A platform on which every call that can fail throws, from a given call on or once: bad_alloc and
// FileError by turns. Waits, clocks and locks that exist work on. Refers to the platform it wraps,
// which must outlive it.
//
//   ThrowingPlatform throwing(fake.platform());
//   throwing.failFrom(17, /*once=*/true);
//   platform::OtherPlatform other(throwing.platform());
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "platform/fake/forwarding.h"
#include "platform/fake/forwarding_files.h"
#include "platform/pipes.h"
#include "platform/system_info.h"
#include "util/errors.h"

namespace korvane::tests {

class ThrowingPlatform {
 public:
  explicit ThrowingPlatform(platform::Platform& to)
      : _threading(*this, to.threading),
        _files(*this, to.files),
        _registry(*this, to.registry),
        _devices(*this, to.devices),
        _processes(*this, to.processes),
        _sockets(*this, to.sockets),
        _system(*this, to.systemInfo),
        _libraries(*this, to.sharedLibraries),
        _pipes(*this, to.pipes),
        _platform{to.clock, _threading, _files,     _registry, _devices, _processes,
                  _sockets, _system,    _libraries, _pipes,    to.rights} {}

  platform::Platform& platform() { return _platform; }
  // The n-th call from now on (1: the next one) throws, and all behind it unless `once`. 0: none.
  void failFrom(int nth, bool once) {
    _calls = 0;
    _from = nth;
    _once = once;
  }
  int calls() const { return _calls; }

 private:
  void call() {
    const int number = ++_calls;
    if (_from == 0 || number < _from || (_once && number > _from)) return;
    if (number % 2 == 0) throw std::bad_alloc();
    throw FileError(5, "call", "call " + std::to_string(number));
  }

  template <class Base>
  class Wrapper : public Base {
   public:
    template <class To>
    Wrapper(ThrowingPlatform& owner, To&& wrapped)
        : Base(std::forward<To>(wrapped)), faults(owner) {}

   protected:
    ThrowingPlatform& faults;
  };

  struct Threading : Wrapper<platform::ForwardingThreading> {
    using Wrapper::Wrapper;
    std::unique_ptr<platform::Event> createEvent(bool manual, bool signalled) override {
      return faults.call(), _to.createEvent(manual, signalled);
    }
    std::unique_ptr<platform::Semaphore> createSemaphore(uint32_t initial, uint32_t max) override {
      return faults.call(), _to.createSemaphore(initial, max);
    }
    std::unique_ptr<platform::Mutex> createMutex() override {
      return faults.call(), _to.createMutex();
    }
    std::unique_ptr<platform::ThreadLocalSlot> createThreadLocalSlot() override {
      return faults.call(), _to.createThreadLocalSlot();
    }
    std::unique_ptr<platform::NativeThread> createThread(uint32_t stack,
                                                         std::function<void()> body) override {
      return faults.call(), _to.createThread(stack, std::move(body));
    }
  };

  struct File : Wrapper<platform::ForwardingFile> {
    using Wrapper::Wrapper;
    int read(void* buffer, size_t size, size_t& got) override {
      return faults.call(), _to->read(buffer, size, got);
    }
    int write(const void* bytes, size_t size) override {
      return faults.call(), _to->write(bytes, size);
    }
    int flush() override { return faults.call(), _to->flush(); }
    int info(platform::FileInfo& out) override { return faults.call(), _to->info(out); }
  };

  struct Files : Wrapper<platform::ForwardingFiles> {
    using Wrapper::Wrapper;
    int open(const std::string& path, platform::OpenMode mode,
             std::unique_ptr<platform::File>& out) override {
      faults.call();
      std::unique_ptr<platform::File> file;
      const int error = _to.open(path, mode, file);
      if (error == 0) out = std::make_unique<File>(faults, std::move(file));
      return error;
    }
    int lock(const std::string& path, std::unique_ptr<platform::FileLock>& out) override {
      return faults.call(), _to.lock(path, out);
    }
    int info(const std::string& path, platform::FileInfo& out) override {
      return faults.call(), _to.info(path, out);
    }
    int replace(const std::string& from, const std::string& to) override {
      return faults.call(), _to.replace(from, to);
    }
    int list(const std::string& folder, std::vector<platform::DirectoryEntry>& out) override {
      return faults.call(), _to.list(folder, out);
    }
  };

  struct Registry : Wrapper<platform::ForwardingRegistry> {
    using Wrapper::Wrapper;
    uint32_t readString(std::string_view key, std::string_view name, STRING& out) override {
      return faults.call(), _to.readString(key, name, out);
    }
    uint32_t writeString(std::string_view key, std::string_view name, const STRING& text) override {
      return faults.call(), _to.writeString(key, name, text);
    }
  };

  struct Devices : Wrapper<platform::ForwardingDevices> {
    using Wrapper::Wrapper;
    uint32_t open(const std::string& name, std::unique_ptr<platform::Device>& out) override {
      return faults.call(), _to.open(name, out);
    }
  };

  struct Processes : Wrapper<platform::ForwardingProcesses> {
    using Wrapper::Wrapper;
    bool isRunning(const std::string& name) override { return faults.call(), _to.isRunning(name); }
  };

  struct Sockets : Wrapper<platform::ForwardingSockets> {
    using Wrapper::Wrapper;
    int startup() override { return faults.call(), _to.startup(); }
    void cleanup() override {
      _to.cleanup();
      faults.call();
    }
    int createTcp(std::unique_ptr<platform::Socket>& out) override {
      return faults.call(), _to.createTcp(out);
    }
  };

  struct Libraries : Wrapper<platform::ForwardingLibraries> {
    using Wrapper::Wrapper;
    uint32_t load(const std::string& path, std::unique_ptr<platform::SharedLibrary>& out,
                  std::string& detail) override {
      return faults.call(), _to.load(path, out, detail);
    }
  };

  struct SystemInfo : platform::SystemInfo {
    SystemInfo(ThrowingPlatform& owner, platform::SystemInfo& wrapped)
        : faults(owner), to(wrapped) {}
    std::string hostName() override { return faults.call(), to.hostName(); }
    std::string domainName() override { return faults.call(), to.domainName(); }
    std::vector<std::string> ipAddresses() override { return faults.call(), to.ipAddresses(); }
    std::string osDescription() override { return faults.call(), to.osDescription(); }
    std::string timeZone() override { return to.timeZone(); }
    platform::SystemVersion version() override { return to.version(); }
    bool hasNetworkFilter() override { return to.hasNetworkFilter(); }
    std::string environment(const std::string& name) override {
      return faults.call(), to.environment(name);
    }
    void adoptUserLocale() override { to.adoptUserLocale(); }
    std::string moduleDirectory() override { return faults.call(), to.moduleDirectory(); }
    ThrowingPlatform& faults;
    platform::SystemInfo& to;
  };

  struct Pipes : platform::Pipes {
    Pipes(ThrowingPlatform& owner, platform::Pipes& wrapped) : faults(owner), to(wrapped) {}
    uint32_t create(const std::string& name, platform::PipeAudience audience,
                    std::unique_ptr<platform::Pipe>& out) override {
      return faults.call(), to.create(name, audience, out);
    }
    uint32_t open(const std::string& name, std::unique_ptr<platform::Pipe>& out) override {
      return faults.call(), to.open(name, out);
    }
    ThrowingPlatform& faults;
    platform::Pipes& to;
  };

  std::atomic<int> _calls{0};
  std::atomic<int> _from{0};
  std::atomic<bool> _once{false};
  Threading _threading;
  Files _files;
  Registry _registry;
  Devices _devices;
  Processes _processes;
  Sockets _sockets;
  SystemInfo _system;
  Libraries _libraries;
  Pipes _pipes;
  platform::Platform _platform;
};

}  // namespace korvane::tests
