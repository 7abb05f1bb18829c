// The registry, below HKEY_LOCAL_MACHINE. Key paths use backslashes and are compared without case,
// as value names are. Returns are Win32 error numbers. Thread-safe.
//
// Windows: the 64-bit view of the registry.
// Linux: a file in the textual .reg format, named when the platform is made: UTF-8 or
// UTF-16LE with its mark, LF or CRLF, strings and dwords. Read anew when it changed;
// written atomically under a lock file beside it ("<file>.lock"). Without a named file the
// registry is empty and every write fails with 5; a named file that is not there is an
// empty registry, made by the first createKey. A file that cannot be understood gives 1009
// to every operation until it is mended, and one that is full gives 8.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "util/string.h"

namespace korvane::platform {

class Registry {
 public:
  virtual ~Registry() = default;
  // 2 when the key or the value is missing, 13 when it has another type.
  [[nodiscard]] virtual uint32_t readString(std::string_view key, std::string_view name,
                                            STRING& out) = 0;
  [[nodiscard]] virtual uint32_t readDword(std::string_view key, std::string_view name,
                                           uint32_t& out) = 0;
  // The key must exist (2 otherwise), the value need not. 87 for a name with control characters.
  [[nodiscard]] virtual uint32_t writeString(std::string_view key, std::string_view name,
                                             const STRING& value) = 0;
  [[nodiscard]] virtual uint32_t writeDword(std::string_view key, std::string_view name,
                                            uint32_t value) = 0;
  // Makes a key and those above it; 0 when it exists, 5 when that is refused. On Linux keys below
  // "Software\Dalvora\Intrusion Security\agent\IPS\TestForPrevention" are refused when the driver
  // simulator says that prevention is in force.
  [[nodiscard]] virtual uint32_t createKey(std::string_view key) = 0;
  // Removes a key with its values; 2 when it is missing, 5 when it has subkeys.
  [[nodiscard]] virtual uint32_t deleteKey(std::string_view key) = 0;
  // What keeps the registry as a whole from being read, naming file and line; empty when
  // nothing does.
  virtual std::string problem() = 0;
};

}  // namespace korvane::platform
