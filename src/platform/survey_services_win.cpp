#include <cerrno>
#include <vector>

#include "platform/errno_win.h"
#include "platform/survey_win.h"
#include "platform/wide_win.h"

namespace korvane::platform {
namespace {

constexpr DWORD kPieceBytes = 64 * 1024;
constexpr DWORD kMostConfigBytes = 8 * 1024;  // the most that the service manager gives of one

struct ServiceKind {
  using Value = SC_HANDLE;
  static Value empty() { return nullptr; }
  static void close(Value value) { ::CloseServiceHandle(value); }
};
using ServiceHandle = OwnedHandle<ServiceKind>;

std::string startOf(SC_HANDLE service, DWORD type) {
  SERVICE_DELAYED_AUTO_START_INFO delayed{};
  DWORD needed = 0;
  switch (type) {
    case SERVICE_AUTO_START:
      ::QueryServiceConfig2W(service, SERVICE_CONFIG_DELAYED_AUTO_START_INFO,
                             reinterpret_cast<BYTE*>(&delayed), sizeof delayed, &needed);
      return delayed.fDelayedAutostart ? "delayed" : "automatic";
    case SERVICE_DISABLED:
      return "disabled";
    default:
      return "manual";
  }
}

std::string textOf(const wchar_t* text) {
  return text ? narrow(text) : std::string();
}

void tellService(SurveyGuide& guide, SC_HANDLE manager, const ENUM_SERVICE_STATUS_PROCESSW& entry,
                 const Survey::Taker<SurveyedService>& take) {
  const ServiceHandle service(::OpenServiceW(manager, entry.lpServiceName, SERVICE_QUERY_CONFIG));
  alignas(QUERY_SERVICE_CONFIGW) BYTE bytes[kMostConfigBytes];
  auto* const config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(bytes);
  DWORD needed = 0;
  if (!service || !::QueryServiceConfigW(service.get(), config, sizeof bytes, &needed)) {
    const DWORD error = ::GetLastError();
    if (error != ERROR_SERVICE_DOES_NOT_EXIST)
      guide.skipped(narrow(entry.lpServiceName), errnoOfWin32(error));
    return;
  }
  take({narrow(entry.lpServiceName), textOf(entry.lpDisplayName),
        startOf(service.get(), config->dwStartType), textOf(config->lpServiceStartName),
        textOf(config->lpBinaryPathName)});
}

}  // namespace

void surveyServiceManager(SurveyGuide& guide, const Survey::Taker<SurveyedService>& take) {
  const ServiceHandle manager(
      ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT | SC_MANAGER_ENUMERATE_SERVICE));
  if (!manager) return guide.skipped("service manager", lastErrno());
  std::vector<BYTE> piece(kPieceBytes);
  DWORD resume = 0;
  for (bool more = true; more && guide.goOn();) {
    DWORD needed = 0, count = 0;
    more = !::EnumServicesStatusExW(manager.get(), SC_ENUM_PROCESS_INFO, SERVICE_WIN32,
                                    SERVICE_STATE_ALL, piece.data(), kPieceBytes, &needed, &count,
                                    &resume, nullptr);
    if (more && ::GetLastError() != ERROR_MORE_DATA)
      return guide.skipped("service manager", lastErrno());
    // What does not fit into a piece of this size never will.
    if (more && count == 0) return guide.skipped("service manager", ENOBUFS);
    const auto* entries = reinterpret_cast<const ENUM_SERVICE_STATUS_PROCESSW*>(piece.data());
    for (DWORD i = 0; i < count && guide.goOn(); ++i)
      tellService(guide, manager.get(), entries[i], take);
  }
}

}  // namespace korvane::platform
