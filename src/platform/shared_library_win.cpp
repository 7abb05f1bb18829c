#include "platform/error_codes.h"
#include "platform/handles_win.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "platform/shared_library.h"
#include "platform/wide_win.h"

namespace korvane::platform {
namespace {

class WinLibrary final : public SharedLibrary {
 public:
  explicit WinLibrary(Module module) : _module(std::move(module)) {}

  void* symbol(const char* name) override {
    return reinterpret_cast<void*>(::GetProcAddress(_module.get(), name));
  }

 private:
  const Module _module;
};

// Keeps the loader from showing a box that nobody sees.
class QuietErrors {
 public:
  QuietErrors() { ::SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &_before); }
  ~QuietErrors() { ::SetThreadErrorMode(_before, nullptr); }
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;

 private:
  DWORD _before = 0;
};

class WinLibraries final : public SharedLibraries {
 public:
  // What the library itself needs is looked for beside it and in the system's folder, never in the
  // program's folder, the current one or the path.
  uint32_t load(const std::string& path, std::unique_ptr<SharedLibrary>& out,
                std::string& detail) override {
    if (!isAbsolutePath(path)) {
      detail = path + ": not a full path";
      return kErrorInvalidParameter;
    }
    const std::wstring name = widePath(path);
    if (::GetFileAttributesW(name.c_str()) == INVALID_FILE_ATTRIBUTES) {
      detail = path + ": no such file";
      return kErrorFileNotFound;
    }
    const QuietErrors quiet;
    Module module(::LoadLibraryExW(
        name.c_str(), nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32));
    if (!module) {
      const DWORD error = ::GetLastError();
      detail = path + ": " + systemText(error);
      return error;
    }
    detail.clear();
    out = std::make_unique<WinLibrary>(std::move(module));
    return kOk;
  }

  std::string fileName(const std::string& baseName) const override { return baseName + ".dll"; }
};

}  // namespace

std::unique_ptr<SharedLibraries> makeNativeSharedLibraries() {
  return std::make_unique<WinLibraries>();
}

}  // namespace korvane::platform
