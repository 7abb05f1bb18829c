#include "host/service_main_win.h"

#include <cstdio>
#include <mutex>
#include <vector>

#include "config/install_root.h"
#include "host/messages.h"
#include "host/service_handles_win.h"
#include "host/system_failure_win.h"
#include "host/text_win.h"
#include "platform/rights.h"

namespace korvane::host {
namespace {

constexpr DWORD kWaitHintMs = 10000;
constexpr DWORD kAccepted =
    SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_PRESHUTDOWN;
constexpr uint64_t kLogLimit = 1024 * 1024;
constexpr DWORD kThreadEndMs = 1000;

DWORD stateCode(ServiceState state) {
  switch (state) {
    case ServiceState::starting:
      return SERVICE_START_PENDING;
    case ServiceState::running:
      return SERVICE_RUNNING;
    default:
      return SERVICE_STOP_PENDING;
  }
}

// What the service manager knows of this process. States only go forward; thread-safe.
class ReportedStatus {
 public:
  void open(SERVICE_STATUS_HANDLE handle) {
    const std::lock_guard hold(_lock);
    _handle = handle;
  }

  void enter(ServiceState state) {
    const std::lock_guard hold(_lock);
    if (state < _state || _ended) return;
    _state = state;
    const bool running = state == ServiceState::running;
    _status.dwCurrentState = stateCode(state);
    _status.dwControlsAccepted = running ? kAccepted : 0;
    _status.dwCheckPoint = running ? 0 : _status.dwCheckPoint + 1;
    _status.dwWaitHint = running ? 0 : kWaitHintMs;
    ::SetServiceStatus(_handle, &_status);
  }

  void end(int exitStatus) {
    const std::lock_guard hold(_lock);
    _ended = true;
    _status.dwCurrentState = SERVICE_STOPPED;
    _status.dwControlsAccepted = _status.dwCheckPoint = _status.dwWaitHint = 0;
    _status.dwWin32ExitCode =
        exitStatus == kExitStopped ? NO_ERROR : DWORD{ERROR_SERVICE_SPECIFIC_ERROR};
    _status.dwServiceSpecificExitCode = static_cast<DWORD>(exitStatus);
    ::SetServiceStatus(_handle, &_status);
  }

 private:
  std::mutex _lock;
  SERVICE_STATUS_HANDLE _handle = nullptr;
  ServiceState _state = ServiceState::starting;
  bool _ended = false;
  SERVICE_STATUS _status = {SERVICE_WIN32_OWN_PROCESS, SERVICE_START_PENDING, 0, 0, 0, 0, 0};
};

struct Service {
  Options options;
  HostEvents events{StopRequests::fromCaller};
  ReportedStatus status;
  platform::KernelObject thread;
  int exitStatus = kExitFailed;
};

// The service manager's entry takes no argument of ours; there is one service a process.
Service* service = nullptr;

DWORD WINAPI onControl(DWORD control, DWORD, void*, void*) {
  switch (control) {
    case SERVICE_CONTROL_STOP:
    case SERVICE_CONTROL_SHUTDOWN:
    case SERVICE_CONTROL_PRESHUTDOWN:
      service->status.enter(ServiceState::stopping);
      service->events.requestStop();
      return NO_ERROR;
    case SERVICE_CONTROL_INTERROGATE:
      return NO_ERROR;
    default:
      return ERROR_CALL_NOT_IMPLEMENTED;
  }
}

bool isLong(const std::wstring& file) {
  WIN32_FILE_ATTRIBUTE_DATA found;
  if (!::GetFileAttributesExW(file.c_str(), GetFileExInfoStandard, &found)) return false;
  return (uint64_t{found.nFileSizeHigh} << 32 | found.nFileSizeLow) > kLogLimit;
}

// A service without its log is still a service; one that others may change is not written.
void openLog(const std::string& root) {
  const std::string path = root + "\\IPS\\logs\\korvane-host.log";
  if (!service->options.allowUnsafe && !platform::unsafePart(path).empty()) return;
  const std::wstring file = wide(path);
  if (std::FILE* log = _wfopen(file.c_str(), isLong(file) ? L"w" : L"a")) keepMessages(log);
}

// Those of this process's token, as the system names them.
std::string privileges() {
  platform::KernelObject token;
  DWORD size = 0;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, token.receive())) return "unknown";
  ::GetTokenInformation(token.get(), TokenPrivileges, nullptr, 0, &size);
  std::vector<BYTE> bytes(size);
  if (!::GetTokenInformation(token.get(), TokenPrivileges, bytes.data(), size, &size))
    return "unknown";
  auto* held = reinterpret_cast<TOKEN_PRIVILEGES*>(bytes.data());
  std::string all;
  for (DWORD i = 0; i < held->PrivilegeCount; ++i) {
    wchar_t name[64];
    DWORD length = 64;
    if (::LookupPrivilegeNameW(nullptr, &held->Privileges[i].Luid, name, &length))
      all += (all.empty() ? "" : " ") + narrow(name);
  }
  return all.empty() ? "none" : all;
}

int runAgentAsService() {
  const std::string& given = service->options.installRoot;
  openLog(given.empty() ? registeredRoot() : fullPath(given));
  say("started as a service, process " + std::to_string(::GetCurrentProcessId()) + ", privileges " +
      privileges());
  try {
    return runAgent(service->options, service->events,
                    [](ServiceState state) { service->status.enter(state); });
  } catch (const std::exception& error) {
    say(error.what());
    return kExitFailed;
  }
}

void keepOwnThread(platform::KernelObject& kept) {
  const HANDLE process = ::GetCurrentProcess();
  HANDLE thread = nullptr;
  if (::DuplicateHandle(process, ::GetCurrentThread(), process, &thread, SYNCHRONIZE, FALSE, 0))
    kept = platform::KernelObject(thread);
}

void WINAPI serviceMain(DWORD, LPWSTR* arguments) {
  keepOwnThread(service->thread);
  const SERVICE_STATUS_HANDLE handle =
      ::RegisterServiceCtrlHandlerExW(arguments[0], onControl, nullptr);
  if (!handle) return;
  service->status.open(handle);
  service->status.enter(ServiceState::starting);
  service->exitStatus = runAgentAsService();
  service->status.end(service->exitStatus);
}

}  // namespace

int runService(const Options& options) {
  Service running;
  running.options = options;
  service = &running;
  // The service manager ignores the name of the only service of a process.
  wchar_t name[] = L"";
  const SERVICE_TABLE_ENTRYW table[] = {{name, serviceMain}, {nullptr, nullptr}};
  if (!::StartServiceCtrlDispatcherW(table))
    throw systemFailure("run as a service: only the service manager can start it");
  // "Stopped" lets the dispatcher return; the end of the process would cut its thread off in the
  // middle of what it does after that word, the heap's lists included.
  ::WaitForSingleObject(running.thread.get(), kThreadEndMs);
  return running.exitStatus;
}

std::string registeredRoot() {
  wchar_t text[32768];
  DWORD bytes = sizeof text;
  const LSTATUS error =
      ::RegGetValueW(HKEY_LOCAL_MACHINE, wide(kAgentRegistryKey).c_str(), L"InstallRoot",
                     RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY, nullptr, text, &bytes);
  return error ? std::string() : narrow(text);
}

}  // namespace korvane::host
