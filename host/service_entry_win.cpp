#include "host/service_entry_win.h"

#include <chrono>

#include "host/command_line.h"
#include "host/host_events.h"
#include "host/service_handles_win.h"
#include "host/system_failure_win.h"
#include "host/text_win.h"

namespace korvane::host {
namespace {

constexpr wchar_t kDescription[] =
    L"Prevents and reports intrusions on this machine, as its management server directs.";
constexpr DWORD kFailureResetSeconds = 24 * 60 * 60;
constexpr DWORD kStopLookMs = 200;
constexpr DWORD kRights = SERVICE_ALL_ACCESS;
// All that the service's token keeps of LocalSystem's: to pass through folders, to learn who is at the
// other end of a pipe. A list of texts, each with its zero.
constexpr wchar_t kPrivileges[] = L"SeChangeNotifyPrivilege\0SeImpersonatePrivilege\0";

ServiceHandle openManager(DWORD rights) {
  ServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, rights));
  if (!manager) throw systemFailure("reach the service manager");
  return manager;
}

ServiceHandle openService(const ServiceHandle& manager, const std::string& name, DWORD rights) {
  ServiceHandle service(::OpenServiceW(manager.get(), wide(name).c_str(), rights));
  if (!service && ::GetLastError() != ERROR_SERVICE_DOES_NOT_EXIST)
    throw systemFailure("open the service " + name);
  return service;
}

DWORD startType(const ServiceEntry& entry) {
  return entry.start == ServiceStart::demand ? SERVICE_DEMAND_START : SERVICE_AUTO_START;
}

ServiceHandle create(const ServiceHandle& manager, const ServiceEntry& entry) {
  ServiceHandle service(
      ::CreateServiceW(manager.get(), wide(entry.name).c_str(), wide(entry.displayName).c_str(),
                       kRights, SERVICE_WIN32_OWN_PROCESS, startType(entry), SERVICE_ERROR_NORMAL,
                       wide(commandLine(entry.command)).c_str(), nullptr, nullptr,
                       /*lpDependencies=*/nullptr, /*lpServiceStartName=*/nullptr, nullptr));
  if (!service) throw systemFailure("make the service " + entry.name);
  return service;
}

void change(const ServiceHandle& service, const ServiceEntry& entry) {
  if (!::ChangeServiceConfigW(service.get(), SERVICE_WIN32_OWN_PROCESS, startType(entry),
                              SERVICE_ERROR_NORMAL, wide(commandLine(entry.command)).c_str(),
                              nullptr, nullptr, /*lpDependencies=*/L"", L"LocalSystem", nullptr,
                              wide(entry.displayName).c_str()))
    throw systemFailure("change the service " + entry.name);
}

// One further setting; a level that this service manager does not know is a note.
class Setter {
 public:
  Setter(const ServiceHandle& service, const std::string& name, std::vector<std::string>& notes)
      : _service(service), _name(name), _notes(notes) {}

  template <class Info>
  void set(DWORD level, const char* what, Info info) const {
    if (::ChangeServiceConfig2W(_service.get(), level, &info)) return;
    const DWORD error = ::GetLastError();
    if (error != ERROR_INVALID_LEVEL)
      throw systemFailure("set the " + std::string(what) + " of the service " + _name, error);
    _notes.push_back("the service manager did not accept the " + std::string(what) + ": " +
                     errorText(error));
  }

 private:
  const ServiceHandle& _service;
  const std::string& _name;
  std::vector<std::string>& _notes;
};

void setFailureActions(const Setter& setter) {
  SC_ACTION again[] = {
      {SC_ACTION_RESTART, 5000}, {SC_ACTION_RESTART, 30000}, {SC_ACTION_RESTART, 60000}};
  setter.set(SERVICE_CONFIG_FAILURE_ACTIONS, "failure actions",
             SERVICE_FAILURE_ACTIONSW{kFailureResetSeconds, nullptr, nullptr, 3, again});
  // An agent that ends itself stops in good order, with a status that is not zero.
  setter.set(SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, "failure actions for an orderly end",
             SERVICE_FAILURE_ACTIONS_FLAG{TRUE});
}

void setTheRest(const ServiceHandle& service, const ServiceEntry& entry,
                std::vector<std::string>& notes) {
  const Setter setter(service, entry.name, notes);
  std::wstring description = kDescription;
  setter.set(SERVICE_CONFIG_DESCRIPTION, "description", SERVICE_DESCRIPTIONW{description.data()});
  setFailureActions(setter);
  std::wstring privileges(std::begin(kPrivileges), std::end(kPrivileges));
  setter.set(SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO, "required privileges",
             SERVICE_REQUIRED_PRIVILEGES_INFOW{privileges.data()});
  setter.set(SERVICE_CONFIG_DELAYED_AUTO_START_INFO, "delayed start",
             SERVICE_DELAYED_AUTO_START_INFO{entry.start == ServiceStart::delayed});
  setter.set(SERVICE_CONFIG_PRESHUTDOWN_INFO, "time at the machine's shutdown",
             SERVICE_PRESHUTDOWN_INFO{entry.shutdownSeconds * 1000});
}

std::string keptCommandLine(const ServiceHandle& service, const std::string& name) {
  DWORD size = 0;
  ::QueryServiceConfigW(service.get(), nullptr, 0, &size);
  std::vector<BYTE> bytes(size);
  auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(bytes.data());
  if (!::QueryServiceConfigW(service.get(), config, size, &size))
    throw systemFailure("read the service " + name);
  return narrow(config->lpBinaryPathName);
}

bool sameProgram(const std::string& left, const std::string& right) {
  return ::CompareStringOrdinal(wide(programOf(left)).c_str(), -1, wide(programOf(right)).c_str(),
                                -1, /*bIgnoreCase=*/TRUE) == CSTR_EQUAL;
}

SERVICE_STATUS_PROCESS statusOf(const ServiceHandle& service, const std::string& name) {
  SERVICE_STATUS_PROCESS status = {};
  DWORD size = 0;
  if (!::QueryServiceStatusEx(service.get(), SC_STATUS_PROCESS_INFO,
                              reinterpret_cast<BYTE*>(&status), sizeof status, &size))
    throw systemFailure("read the state of the service " + name);
  return status;
}

// A service that is starting or stopping, or has stopped by itself, takes no request.
void requestStop(const ServiceHandle& service, const std::string& name) {
  SERVICE_STATUS ignored;
  if (::ControlService(service.get(), SERVICE_CONTROL_STOP, &ignored)) return;
  const DWORD error = ::GetLastError();
  if (error != ERROR_SERVICE_NOT_ACTIVE && error != ERROR_SERVICE_CANNOT_ACCEPT_CTRL &&
      error != ERROR_INVALID_SERVICE_CONTROL)
    throw systemFailure("stop the service " + name, error);
}

// Waits a moment for the end of the process; there is none yet while a service is about to start.
bool processEnds(DWORD id) {
  const platform::KernelObject process(::OpenProcess(SYNCHRONIZE, FALSE, id));
  if (!process && id != 0 && ::GetLastError() == ERROR_INVALID_PARAMETER) return true;
  const platform::KernelObject never(::CreateEventW(nullptr, TRUE, FALSE, nullptr));
  return ::WaitForSingleObject(process ? process.get() : never.get(), kStopLookMs) == WAIT_OBJECT_0;
}

// A service whose process has ended has stopped, whatever the service manager has noticed
// of it so far.
bool stopped(const ServiceHandle& service, const std::string& name, uint32_t seconds) {
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (true) {
    const SERVICE_STATUS_PROCESS status = statusOf(service, name);
    const bool atRest = status.dwCurrentState == SERVICE_STOPPED;
    if (atRest && status.dwProcessId == 0) return true;
    if (!atRest) requestStop(service, name);
    if (processEnds(status.dwProcessId)) return true;
    if (std::chrono::steady_clock::now() >= limit) return atRest;
  }
}

}  // namespace

EntryChange writeServiceEntry(const ServiceEntry& entry, std::vector<std::string>& notes) {
  const ServiceHandle manager = openManager(SC_MANAGER_CONNECT | SC_MANAGER_CREATE_SERVICE);
  if (const ServiceHandle found = openService(manager, entry.name, kRights)) {
    if (!sameProgram(keptCommandLine(found, entry.name), commandLine(entry.command)))
      return EntryChange::refused;
    change(found, entry);
    setTheRest(found, entry, notes);
    return EntryChange::updated;
  }
  const ServiceHandle made = create(manager, entry);
  try {
    setTheRest(made, entry, notes);
  } catch (...) {
    ::DeleteService(made.get());
    throw;
  }
  return EntryChange::made;
}

std::string serviceCommandLine(const std::string& name) {
  const ServiceHandle manager = openManager(SC_MANAGER_CONNECT);
  const ServiceHandle service = openService(manager, name, SERVICE_QUERY_CONFIG);
  if (!service) throw systemFailure("open the service " + name, ERROR_SERVICE_DOES_NOT_EXIST);
  return keptCommandLine(service, name);
}

EntryRemoval removeServiceEntry(const std::string& name, uint32_t stopSeconds) {
  const ServiceHandle manager = openManager(SC_MANAGER_CONNECT);
  const ServiceHandle service =
      openService(manager, name, SERVICE_QUERY_STATUS | SERVICE_STOP | DELETE);
  if (!service) return EntryRemoval::missing;
  if (!stopped(service, name, stopSeconds)) return EntryRemoval::running;
  if (!::DeleteService(service.get())) throw systemFailure("remove the service " + name);
  return EntryRemoval::removed;
}

}  // namespace korvane::host
