#include <clocale>
#include <cstdio>

#include "platform/handles_win.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "platform/system_info.h"
#include "platform/wide_win.h"

// Behind winsock2.h, which they need.
#include <iphlpapi.h>
#include <ws2tcpip.h>

namespace korvane::platform {
namespace {

constexpr ULONG kAddressBytes = 16 * 1024;
constexpr wchar_t kVersionKey[] = L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";

std::string computerName(COMPUTER_NAME_FORMAT format) {
  wchar_t name[256] = L"";
  DWORD size = static_cast<DWORD>(std::size(name));
  return ::GetComputerNameExW(format, name, &size) ? narrow({name, size}) : "";
}

// Asks the kernel: the documented calls answer what the program's manifest says it knows.
OSVERSIONINFOEXW kernelVersion() {
  using RtlGetVersion = LONG(WINAPI*)(OSVERSIONINFOEXW*);
  OSVERSIONINFOEXW version{};
  version.dwOSVersionInfoSize = sizeof version;
  const auto ask = reinterpret_cast<RtlGetVersion>(
      reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion")));
  if (ask) ask(&version);
  return version;
}

std::string productName() {
  wchar_t name[256] = L"";
  DWORD size = sizeof name;
  const LSTATUS error = ::RegGetValueW(HKEY_LOCAL_MACHINE, kVersionKey, L"ProductName",
                                       RRF_RT_REG_SZ | RRF_SUBKEY_WOW6464KEY, nullptr, name, &size);
  std::string text = error ? "Windows" : narrow(name);
  return text.starts_with("Microsoft") ? text : "Microsoft " + text;
}

// Windows 11 says in the registry that it is Windows 10.
std::string currentName(std::string name, DWORD build) {
  constexpr DWORD kFirstBuildOf11 = 22000;
  const size_t at = name.find("Windows 10");
  if (build >= kFirstBuildOf11 && at != std::string::npos) name.replace(at, 10, "Windows 11");
  return name;
}

bool isLoopbackAddress(const sockaddr_in& address) {
  return ::ntohl(address.sin_addr.s_addr) >> 24 == 127;
}

std::string dottedAddress(const sockaddr_in& address) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(&address.sin_addr);
  return std::to_string(bytes[0]) + "." + std::to_string(bytes[1]) + "." +
         std::to_string(bytes[2]) + "." + std::to_string(bytes[3]);
}

std::vector<std::byte> adapterList() {
  ULONG size = kAddressBytes;
  std::vector<std::byte> bytes;
  ULONG error;
  do {
    bytes.resize(size);
    error = ::GetAdaptersAddresses(
        AF_INET, GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER,
        nullptr, reinterpret_cast<IP_ADAPTER_ADDRESSES*>(bytes.data()), &size);
  } while (error == ERROR_BUFFER_OVERFLOW);
  if (error) bytes.clear();
  return bytes;
}

long minutesEastOfUtc() {
  TIME_ZONE_INFORMATION zone{};
  switch (::GetTimeZoneInformation(&zone)) {
    case TIME_ZONE_ID_DAYLIGHT:
      return -(zone.Bias + zone.DaylightBias);
    case TIME_ZONE_ID_STANDARD:
      return -(zone.Bias + zone.StandardBias);
    default:
      return -zone.Bias;
  }
}

class WinSystemInfo final : public SystemInfo {
 public:
  std::string hostName() override { return computerName(ComputerNameDnsHostname); }
  std::string domainName() override { return computerName(ComputerNameDnsDomain); }

  std::vector<std::string> ipAddresses() override {
    const std::vector<std::byte> bytes = adapterList();
    if (bytes.empty()) return {};
    std::vector<std::string> outside, loopback;
    for (auto* adapter = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(bytes.data()); adapter;
         adapter = adapter->Next) {
      if (adapter->OperStatus != IfOperStatusUp) continue;
      for (auto* at = adapter->FirstUnicastAddress; at; at = at->Next) {
        const auto& address = *reinterpret_cast<const sockaddr_in*>(at->Address.lpSockaddr);
        (isLoopbackAddress(address) ? loopback : outside).push_back(dottedAddress(address));
      }
    }
    return outside.empty() ? loopback : outside;
  }

  std::string osDescription() override {
    const SystemVersion now = version();
    return currentName(productName(), now.build) + " " + std::to_string(now.major) + "." +
           std::to_string(now.minor) + "." + std::to_string(now.build);
  }

  std::string timeZone() override {
    const long east = minutesEastOfUtc();
    const long minutes = east < 0 ? -east : east;
    char text[32];
    std::snprintf(text, sizeof text, "%c%02ld:%02ld", east < 0 ? '-' : '+', minutes / 60,
                  minutes % 60);
    return text;
  }

  SystemVersion version() override {
    const OSVERSIONINFOEXW found = kernelVersion();
    return {found.dwMajorVersion, found.dwMinorVersion, found.dwBuildNumber};
  }

  bool hasNetworkFilter() override { return version().major >= 6; }

  std::string environment(const std::string& name) override {
    const std::wstring wanted = wide(name);
    std::wstring value(256, L'\0');
    for (;;) {
      const auto room = static_cast<DWORD>(value.size());
      const DWORD size = ::GetEnvironmentVariableW(wanted.c_str(), value.data(), room);
      value.resize(size);
      if (size < room) return narrow(value);
    }
  }

  void adoptUserLocale() override { std::setlocale(LC_CTYPE, ""); }

  std::string moduleDirectory() override {
    HMODULE module = nullptr;  // not counted: it cannot go while its own code runs
    ::GetModuleHandleExW(
        GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
        reinterpret_cast<const wchar_t*>(&makeNativeSystemInfo), &module);
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
      const auto room = static_cast<DWORD>(path.size());
      const DWORD size = ::GetModuleFileNameW(module, path.data(), room);
      if (size < room) return directoryOf(narrow({path.data(), size}));
      path.resize(path.size() * 2);
    }
  }
};

}  // namespace

std::unique_ptr<SystemInfo> makeNativeSystemInfo() {
  return std::make_unique<WinSystemInfo>();
}

}  // namespace korvane::platform
