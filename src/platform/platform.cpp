#include "platform/platform.h"

#include <atomic>

#include "platform/system_info.h"

namespace korvane::platform {
namespace {

std::atomic<Platform*> currentPlatform{nullptr};
std::atomic<uint64_t> generation{0};

// What a program uses that never starts an agent, with the options that a host would have put into the environment.
// Never destroyed: threads that are left behind may still use it while the process ends.
Platform& defaultPlatform() {
  static NativePlatform* const native = [] {
    const std::unique_ptr<NativePlatform> bare = makeNativePlatform({});
    SystemInfo& system = bare->platform().systemInfo;
    return makeNativePlatform(
               {system.environment("KORVANE_REGISTRY"), system.environment("KORVANE_RUN_DIR")})
        .release();
  }();
  return native->platform();
}

}  // namespace

Platform& current() {
  Platform* platform = currentPlatform.load(std::memory_order_acquire);
  return platform ? *platform : defaultPlatform();
}

void setCurrent(Platform* platform) {
  currentPlatform.store(platform, std::memory_order_release);
  generation.fetch_add(1, std::memory_order_acq_rel);
}

uint64_t currentGeneration() {
  return generation.load(std::memory_order_acquire);
}

}  // namespace korvane::platform
