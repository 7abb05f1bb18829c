#include "kavips-sys/driver_service.h"
#include "platform/driver_device.h"
//
#include <winsock2.h>
//
#include <windows.h>
//
#include <sddl.h>

#include <array>
#include <memory>
#include <span>

#include "platform/error_codes.h"
#include "platform/files.h"
#include "platform/handles_win.h"
#include "platform/native.h"
#include "platform/registry.h"
#include "platform/wide_win.h"
#include "stand-in-policy/driver_control.h"

namespace korvane::kavips {
namespace {

using platform::wide;

constexpr wchar_t kService[] = L"KAVIPSDriver";
constexpr wchar_t kDisplayName[] = L"KAVIPS driver (stand-in, enforces nothing)";
constexpr char kServices[] = "System\\CurrentControlSet\\Services\\";
constexpr const char* kFilterServices[] = {"KAVIPSNetFilter", "AKAVIPSTcpFilter"};
constexpr uint32_t kStartOnDemand = 3;

constexpr wchar_t kTestKey[] =
    L"Software\\Dalvora\\Intrusion Security\\agent\\IPS\\TestForPrevention";
// Everyone may see the list, change it and delete the key, and nothing else.
constexpr wchar_t kDenyingList[] = L"D:P(A;;RCSDWD;;;WD)";

constexpr char kControlDevice[] = "\\\\.\\KAVIPS-CONTROL";
constexpr uint32_t kCommandTimeoutMs = 10000;

struct ServiceKind {
  using Value = SC_HANDLE;
  static Value empty() { return nullptr; }
  static void close(Value value) { ::CloseServiceHandle(value); }
};
using ServiceHandle = platform::OwnedHandle<ServiceKind>;

struct LocalMemoryKind {
  using Value = PSECURITY_DESCRIPTOR;
  static Value empty() { return nullptr; }
  static void close(Value value) { ::LocalFree(value); }
};

std::string failure(const std::string& what, DWORD error) {
  return error == ERROR_SUCCESS ? "" : what + ": " + platform::systemText(error);
}

std::string lastFailure(const std::string& what) {
  return failure(what, ::GetLastError());
}

ServiceHandle openManager() {
  return ServiceHandle(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
}

ServiceHandle openService(const ServiceHandle& manager) {
  return ServiceHandle(::OpenServiceW(manager.get(), kService, SERVICE_ALL_ACCESS));
}

// The service with that file, made when it is missing.
std::string registerService(const std::wstring& file, ServiceHandle& service) {
  const ServiceHandle manager = openManager();
  if (!manager) return lastFailure("the service manager cannot be opened");
  service = openService(manager);
  if (!service) {
    service = ServiceHandle(
        ::CreateServiceW(manager.get(), kService, kDisplayName, SERVICE_ALL_ACCESS,
                         SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START, SERVICE_ERROR_IGNORE,
                         file.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    return service ? "" : lastFailure("the service KAVIPSDriver cannot be created");
  }
  const BOOL changed =
      ::ChangeServiceConfigW(service.get(), SERVICE_NO_CHANGE, SERVICE_NO_CHANGE, SERVICE_NO_CHANGE,
                             file.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  return changed ? "" : lastFailure("the service KAVIPSDriver cannot be changed");
}

std::string makeKeys() {
  const auto files = platform::makeNativeFiles();
  const auto devices = platform::makeNativeDevices({});
  const auto registry = platform::makeNativeRegistry({}, *files, *devices);
  const std::string parameters = std::string(kServices) + "KAVIPSDriver\\Parameters";
  uint32_t error = registry->createKey(parameters);
  for (const auto& [name, value] : {std::pair("UseBuiltin", "0"), std::pair("Enable", "1")}) {
    STRING present;
    if (error == 0 && registry->readString(parameters, name, present) != 0)
      error = registry->writeString(parameters, name, value);
  }
  for (const char* service : kFilterServices) {
    uint32_t present = 0;
    const std::string key = kServices + std::string(service);
    if (error == 0) error = registry->createKey(key);
    if (error == 0 && registry->readDword(key, "Start", present) != 0)
      error = registry->writeDword(key, "Start", kStartOnDemand);
  }
  return failure("the driver's keys cannot be created", error);
}

bool runs(const ServiceHandle& service) {
  SERVICE_STATUS status{};
  return ::QueryServiceStatus(service.get(), &status) && status.dwCurrentState != SERVICE_STOPPED;
}

std::string stopService(const ServiceHandle& service) {
  SERVICE_STATUS status{};
  if (!runs(service)) return "";
  const BOOL asked = ::ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
  if (!asked && ::GetLastError() != ERROR_SERVICE_NOT_ACTIVE)
    return lastFailure("the driver cannot be stopped");
  // A driver's stop is done when the call returns; where it is not, it is so within moments.
  for (int i = 0; i < 1000 && runs(service); ++i) ::WaitForSingleObject(::GetCurrentThread(), 10);
  return runs(service) ? "the driver does not stop: a handle to its device may be open" : "";
}

std::string forMissingKeys(LSTATUS error, const std::string& what) {
  return error == ERROR_FILE_NOT_FOUND ? "" : failure(what, static_cast<DWORD>(error));
}

std::string deleteTree(const std::string& service) {
  const std::wstring key = wide(kServices + service);
  return forMissingKeys(::RegDeleteTreeW(HKEY_LOCAL_MACHINE, key.c_str()),
                        "the key of " + service + " cannot be removed");
}

std::string denyTestKey() {
  platform::RegistryKey key;
  platform::OwnedHandle<LocalMemoryKind> list;
  LSTATUS error = ::RegCreateKeyExW(HKEY_LOCAL_MACHINE, kTestKey, 0, nullptr, 0,
                                    WRITE_DAC | KEY_WOW64_64KEY, nullptr, key.receive(), nullptr);
  if (error != ERROR_SUCCESS)
    return failure("the test key cannot be created", static_cast<DWORD>(error));
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(kDenyingList, SDDL_REVISION_1,
                                                              list.receive(), nullptr))
    return lastFailure("the test key's access list cannot be created");
  error = ::RegSetKeySecurity(key.get(), DACL_SECURITY_INFORMATION, list.get());
  return failure("the test key's access list cannot be set", static_cast<DWORD>(error));
}

}  // namespace

std::string loadDriver(const std::string& sysFile) {
  ServiceHandle service;
  std::string problem = registerService(platform::widePath(sysFile), service);
  if (problem.empty()) problem = makeKeys();
  if (!problem.empty() || runs(service)) return problem;
  return ::StartServiceW(service.get(), 0, nullptr) ? ""
                                                    : lastFailure(sysFile + " cannot be started");
}

std::string unloadDriver() {
  const ServiceHandle service = openService(openManager());
  return service ? stopService(service) : "";
}

std::string removeDriver() {
  std::string problem;
  {
    const ServiceHandle service = openService(openManager());
    if (service) problem = stopService(service);
    if (service && problem.empty() && !::DeleteService(service.get()))
      problem = lastFailure("the service KAVIPSDriver cannot be deleted");
  }
  for (const char* key : {"KAVIPSDriver", kFilterServices[0], kFilterServices[1]})
    if (problem.empty()) problem = deleteTree(key);
  return problem;
}

std::string setPrevention(bool on) {
  if (on) return denyTestKey();
  return forMissingKeys(::RegDeleteKeyExW(HKEY_LOCAL_MACHINE, kTestKey, KEY_WOW64_64KEY, 0),
                        "the test key cannot be removed");
}

std::string command(const std::string& words, std::string& reply) {
  const auto devices = platform::makeNativeDevices({});
  std::unique_ptr<platform::Device> device;
  std::unique_ptr<platform::DeviceRequest> request;
  uint32_t error = devices->open(kControlDevice, device);
  if (error != 0) return failure("the stand-in driver is not loaded", error);
  error =
      device->prepare(KVP_COMMAND_CODE, std::as_bytes(std::span(words)), KVP_STATE_BYTES, request);
  if (error == 0) error = request->issue();
  if (error == platform::kErrorIoPending)
    error = request->wait(kCommandTimeoutMs) == platform::DeviceWait::signalled
                ? request->result()
                : platform::kErrorOperationAborted;
  if (error != 0) return failure("not understood: " + words, error);
  reply = reinterpret_cast<const char*>(request->output().data());
  return "";
}

}  // namespace korvane::kavips
