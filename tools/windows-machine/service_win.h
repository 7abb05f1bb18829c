// A service of the system, as an administrator handles it: for the demo and the end-to-end tests.
//
// Lifetime: handles of the service manager's are held as long as the object; the service
// must exist.
// Threads: one. Errors: std::runtime_error, whose text names the service, what was tried and the
// system's reason. Units: milliseconds.
//
//   Service service("KorvaneAgent");
//   service.start();
//   const int64_t took = service.stop();
#pragma once

#include <cstdint>
#include <string>

#include "platform/fwd.h"
#include "platform/handles_win.h"

namespace korvane::machine {

struct ServiceKind {
  using Value = SC_HANDLE;
  static Value empty() { return nullptr; }
  static void close(Value value) { ::CloseServiceHandle(value); }
};
using ServiceHandle = platform::OwnedHandle<ServiceKind>;

class Service {
 public:
  Service(platform::Clock& clock, platform::Threading& threading, const std::string& name);

  // Returns when it runs.
  void start();
  // Returns when the service manager has it as stopped and its process has ended; tells how
  // long that took.
  int64_t stop();
  // Ends the process at once, as a crash would. Wine's service manager has the service as
  // running until it is started again.
  void kill();
  SERVICE_STATUS_PROCESS status() const;

 private:
  [[noreturn]] void fail(const std::string& what, DWORD error) const;
  void awaitState(DWORD wanted) const;
  platform::KernelObject process(DWORD access) const;
  void awaitEnd(const platform::KernelObject& process) const;

  int64_t now() const;

  platform::Clock& _clock;
  platform::Threading& _threading;
  const std::string _name;
  ServiceHandle _manager;
  ServiceHandle _service;
};

}  // namespace korvane::machine
