#include "platform/rights.h"

#include "platform/native.h"

namespace korvane::platform {
namespace {

class NativeRights final : public Rights {
 public:
  explicit NativeRights(bool faultsAllowed) : _faultsAllowed(faultsAllowed) {}
  std::string fault(const std::string& path) override { return unsafePart(path); }
  bool faultsAllowed() const override { return _faultsAllowed; }

 private:
  const bool _faultsAllowed;
};

}  // namespace

std::unique_ptr<Rights> makeNativeRights(const NativeOptions& options) {
  return std::make_unique<NativeRights>(options.unsafeFilesAllowed);
}

}  // namespace korvane::platform
