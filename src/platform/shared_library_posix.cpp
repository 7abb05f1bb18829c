#include <dlfcn.h>
#include <unistd.h>

#include "platform/error_codes.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "platform/shared_library.h"

namespace korvane::platform {
namespace {

class PosixLibrary final : public SharedLibrary {
 public:
  explicit PosixLibrary(void* handle) : _handle(handle) {}
  ~PosixLibrary() override { ::dlclose(_handle); }
  PosixLibrary(const PosixLibrary&) = delete;
  PosixLibrary& operator=(const PosixLibrary&) = delete;

  void* symbol(const char* name) override { return ::dlsym(_handle, name); }

 private:
  void* const _handle;
};

class PosixLibraries final : public SharedLibraries {
 public:
  uint32_t load(const std::string& path, std::unique_ptr<SharedLibrary>& out,
                std::string& detail) override {
    if (!isAbsolutePath(path)) {
      detail = path + ": not a full path";
      return kErrorInvalidParameter;
    }
    if (::access(path.c_str(), F_OK) != 0) {
      detail = path + ": no such file";
      return kErrorFileNotFound;
    }
    void* handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!handle) {
      const char* text = ::dlerror();
      detail = text ? text : path + ": refused by the loader";
      return kErrorBadExeFormat;
    }
    detail.clear();
    out = std::make_unique<PosixLibrary>(handle);
    return kOk;
  }

  std::string fileName(const std::string& baseName) const override {
    return "lib" + baseName + ".so";
  }
};

}  // namespace

std::unique_ptr<SharedLibraries> makeNativeSharedLibraries() {
  return std::make_unique<PosixLibraries>();
}

}  // namespace korvane::platform
