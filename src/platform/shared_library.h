// Dynamic libraries, loaded by full path only. Returns are Win32 error numbers; `detail` gets the
// loader's own text. A library is unloaded when its object is destroyed. Thread-safe.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace korvane::platform {

class SharedLibrary {
 public:
  virtual ~SharedLibrary() = default;
  // The address of an exported function, or null.
  virtual void* symbol(const char* name) = 0;
};

class SharedLibraries {
 public:
  virtual ~SharedLibraries() = default;
  // 87 for a path that is not absolute, 2 when there is no such file, 193 when it is not a library.
  [[nodiscard]] virtual uint32_t load(const std::string& path, std::unique_ptr<SharedLibrary>& out,
                                      std::string& detail) = 0;
  // "kavipstranslator" -> "kavipstranslator.dll" or "libkavipstranslator.so".
  virtual std::string fileName(const std::string& baseName) const = 0;
};

}  // namespace korvane::platform
