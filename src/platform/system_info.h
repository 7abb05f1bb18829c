// Facts about the machine. Texts are UTF-8; an answer that is not available is empty.
// Thread-safe; nothing is cached here.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace korvane::platform {

struct SystemVersion {
  uint32_t major = 0;  // Windows NT numbers; on Linux the kernel's
  uint32_t minor = 0;
  uint32_t build = 0;
};

class SystemInfo {
 public:
  virtual ~SystemInfo() = default;
  virtual std::string hostName() = 0;
  virtual std::string domainName() = 0;
  // The IPv4 addresses of the interfaces that are up, loopback left out unless there is no other.
  virtual std::vector<std::string> ipAddresses() = 0;
  // One line: "Microsoft Windows Server 2022 10.0.20348", "Debian GNU/Linux 12 (bookworm) 6.1.0".
  virtual std::string osDescription() = 0;
  // Offset from UTC as "+hh:mm" or "-hh:mm", as the wall clock shows it now.
  virtual std::string timeZone() = 0;
  virtual SystemVersion version() = 0;
  // True for Windows NT 6.0 and later, and for every other system.
  virtual bool hasNetworkFilter() = 0;
  // An environment variable of this process; empty when missing.
  virtual std::string environment(const std::string& name) = 0;
  // Sets the character-type locale of the C library to the user's default.
  virtual void adoptUserLocale() = 0;
  // The directory of the module that holds this code (the agent library, or the program).
  virtual std::string moduleDirectory() = 0;
};

}  // namespace korvane::platform
