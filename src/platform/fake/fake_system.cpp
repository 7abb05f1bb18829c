#include "platform/fake/fake_system.h"

#include "platform/paths.h"

namespace korvane::platform {
namespace {

class FakeLibrary final : public SharedLibrary {
 public:
  FakeLibrary(FakeLibraries::Symbols symbols, std::shared_ptr<int> loads)
      : _symbols(std::move(symbols)), _loads(std::move(loads)) {}

  void* symbol(const char* name) override {
    const auto found = _symbols.find(name);
    return found == _symbols.end() ? nullptr : found->second;
  }

 private:
  const FakeLibraries::Symbols _symbols;
  const std::shared_ptr<int> _loads;
};

}  // namespace

uint32_t FakeLibraries::load(const std::string& path, std::unique_ptr<SharedLibrary>& out,
                             std::string& detail) {
  if (!isAbsolutePath(path)) {
    detail = path + ": not a full path";
    return kErrorInvalidParameter;
  }
  FakeLock lock(_mutex);
  const auto found = _libraries.find(path);
  if (found == _libraries.end()) {
    detail = path + ": no such file";
    return kErrorFileNotFound;
  }
  if (found->second.empty()) {
    detail = path + ": not a library";
    return kErrorBadExeFormat;
  }
  detail.clear();
  out = std::make_unique<FakeLibrary>(found->second, _loads);
  return kOk;
}

void FakeLibraries::install(const std::string& path, Symbols symbols) {
  FakeLock lock(_mutex);
  _libraries[path] = std::move(symbols);
}

}  // namespace korvane::platform
