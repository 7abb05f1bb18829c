#include <arpa/inet.h>
#include <dlfcn.h>
#include <ifaddrs.h>
#include <limits.h>
#include <net/if.h>
#include <stdlib.h>
#include <sys/utsname.h>
#include <time.h>

#include <clocale>
#include <cstdio>
#include <fstream>

#include "platform/native.h"
#include "platform/paths.h"
#include "platform/system_info.h"

namespace korvane::platform {
namespace {

utsname systemName() {
  utsname name{};
  ::uname(&name);
  return name;
}

// The first line of a small text file that begins with `prefix`, without it.
std::string lineAfter(const char* path, const std::string& prefix) {
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);)
    if (line.starts_with(prefix)) return line.substr(prefix.size());
  return {};
}

std::string unquoted(std::string text) {
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
    return text.substr(1, text.size() - 2);
  return text;
}

bool isLoopback(const sockaddr_in& address) {
  return ntohl(address.sin_addr.s_addr) >> 24 == 127;
}

std::string dotted(const sockaddr_in& address) {
  char text[INET_ADDRSTRLEN] = "";
  ::inet_ntop(AF_INET, &address.sin_addr, text, sizeof text);
  return text;
}

std::string realPath(const char* path) {
  const std::unique_ptr<char, void (*)(void*)> resolved(::realpath(path, nullptr), ::free);
  return resolved ? resolved.get() : "";
}

class PosixSystemInfo final : public SystemInfo {
 public:
  std::string hostName() override {
    const std::string full = systemName().nodename;
    return full.substr(0, full.find('.'));
  }

  // The resolver is not asked: it may block.
  std::string domainName() override {
    const std::string full = systemName().nodename;
    if (const size_t dot = full.find('.'); dot != std::string::npos) return full.substr(dot + 1);
    for (const char* prefix : {"domain ", "search "})
      if (const std::string names = lineAfter("/etc/resolv.conf", prefix); !names.empty())
        return names.substr(0, names.find(' '));
    return {};
  }

  std::vector<std::string> ipAddresses() override {
    ifaddrs* interfaces = nullptr;
    if (::getifaddrs(&interfaces) != 0) return {};
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owned(interfaces, ::freeifaddrs);
    std::vector<std::string> outside, loopback;
    for (const ifaddrs* at = interfaces; at; at = at->ifa_next) {
      if (!at->ifa_addr || at->ifa_addr->sa_family != AF_INET || !(at->ifa_flags & IFF_UP))
        continue;
      const auto& address = *reinterpret_cast<const sockaddr_in*>(at->ifa_addr);
      (isLoopback(address) ? loopback : outside).push_back(dotted(address));
    }
    return outside.empty() ? loopback : outside;
  }

  std::string osDescription() override {
    std::string name = unquoted(lineAfter("/etc/os-release", "PRETTY_NAME="));
    const utsname kernel = systemName();
    if (name.empty()) name = kernel.sysname;
    return name + " " + kernel.release;
  }

  std::string timeZone() override {
    const time_t now = ::time(nullptr);
    tm local{};
    if (!::localtime_r(&now, &local)) return {};
    const long minutes = std::labs(local.tm_gmtoff) / 60;
    char text[32];
    std::snprintf(text, sizeof text, "%c%02ld:%02ld", local.tm_gmtoff < 0 ? '-' : '+', minutes / 60,
                  minutes % 60);
    return text;
  }

  SystemVersion version() override {
    SystemVersion version;
    std::sscanf(systemName().release, "%u.%u.%u", &version.major, &version.minor, &version.build);
    return version;
  }

  bool hasNetworkFilter() override { return true; }

  std::string environment(const std::string& name) override {
    const char* value = ::getenv(name.c_str());
    return value ? value : "";
  }

  void adoptUserLocale() override { std::setlocale(LC_CTYPE, ""); }

  std::string moduleDirectory() override {
    Dl_info module{};
    // The name of the program itself is what it was started with, which may be relative to
    // anything.
    const bool found = ::dladdr(reinterpret_cast<void*>(&makeNativeSystemInfo), &module) != 0;
    const bool isLibrary =
        found && std::string_view(module.dli_fname).find(".so") != std::string::npos;
    return directoryOf(realPath(isLibrary ? module.dli_fname : "/proc/self/exe"));
  }
};

}  // namespace

std::unique_ptr<SystemInfo> makeNativeSystemInfo() {
  return std::make_unique<PosixSystemInfo>();
}

}  // namespace korvane::platform
