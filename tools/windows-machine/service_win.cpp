#include "windows-machine/service_win.h"

#include <stdexcept>

#include "platform/clock.h"
#include "platform/threading.h"
#include "platform/wide_win.h"

namespace korvane::machine {
namespace {

using platform::KernelObject;

constexpr uint32_t kLimitMs = 60000;
constexpr uint32_t kLookMs = 10;
constexpr UINT kKilledCode = 137;

const char* stateName(DWORD state) {
  return state == SERVICE_RUNNING ? "running" : "stopped";
}

}  // namespace

Service::Service(platform::Clock& clock, platform::Threading& threading, const std::string& name)
    : _clock(clock),
      _threading(threading),
      _name(name),
      _manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT)) {
  if (!_manager) fail("the service manager cannot be reached", ::GetLastError());
  _service = ServiceHandle(::OpenServiceW(_manager.get(), platform::wide(name).c_str(),
                                          SERVICE_START | SERVICE_STOP | SERVICE_QUERY_STATUS));
  if (!_service) fail("cannot be opened", ::GetLastError());
}

int64_t Service::now() const {
  return _clock.monotonicMs();
}

void Service::start() {
  if (!::StartServiceW(_service.get(), 0, nullptr)) fail("cannot be started", ::GetLastError());
  awaitState(SERVICE_RUNNING);
}

int64_t Service::stop() {
  const int64_t begun = now();
  const KernelObject running = process(SYNCHRONIZE);
  SERVICE_STATUS ignored{};
  if (!::ControlService(_service.get(), SERVICE_CONTROL_STOP, &ignored))
    fail("cannot be stopped", ::GetLastError());
  awaitState(SERVICE_STOPPED);
  awaitEnd(running);
  return now() - begun;
}

void Service::kill() {
  const KernelObject running = process(SYNCHRONIZE | PROCESS_TERMINATE);
  if (!::TerminateProcess(running.get(), kKilledCode))
    fail("its process cannot be ended", ::GetLastError());
  awaitEnd(running);
}

SERVICE_STATUS_PROCESS Service::status() const {
  SERVICE_STATUS_PROCESS status{};
  DWORD needed = 0;
  if (!::QueryServiceStatusEx(_service.get(), SC_STATUS_PROCESS_INFO,
                              reinterpret_cast<BYTE*>(&status), sizeof status, &needed))
    fail("cannot be queried", ::GetLastError());
  return status;
}

void Service::fail(const std::string& what, DWORD error) const {
  throw std::runtime_error("service " + _name + ": " + what + ": " + platform::systemText(error));
}

void Service::awaitState(DWORD wanted) const {
  const auto pause = _threading.createEvent(true, false);
  for (const int64_t begun = now(); status().dwCurrentState != wanted; pause->wait(kLookMs))
    if (now() - begun > kLimitMs)
      fail(std::string("is not ") + stateName(wanted) + " but in state " +
               std::to_string(status().dwCurrentState),
           WAIT_TIMEOUT);
}

KernelObject Service::process(DWORD access) const {
  const DWORD id = status().dwProcessId;
  KernelObject process(::OpenProcess(access, /*bInheritHandle=*/FALSE, id));
  if (!process) fail("has no process " + std::to_string(id), ::GetLastError());
  return process;
}

void Service::awaitEnd(const KernelObject& process) const {
  if (::WaitForSingleObject(process.get(), kLimitMs) != WAIT_OBJECT_0)
    fail("its process does not end", WAIT_TIMEOUT);
}

}  // namespace korvane::machine
