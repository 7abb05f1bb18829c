#include "platform/platform.h"

#include <utility>

#include "platform/system_info.h"

namespace korvane::platform {
namespace {

// What a program uses that never starts an agent. Never destroyed: threads that are left behind may
// still use it while the process ends.
Platform& defaultPlatform() {
  static NativePlatform* const native = [] {
    const std::unique_ptr<NativePlatform> bare = makeNativePlatform({});
    return makeNativePlatform(optionsOfEnvironment(bare->platform().systemInfo)).release();
  }();
  return native->platform();
}

std::shared_ptr<AgentRun> runOn(std::shared_ptr<Platform> platform) {
  std::shared_ptr<AgentRun> run = AgentRun::make();
  run->put(RunPart::platform, std::move(platform));
  return run;
}

}  // namespace

NativeOptions optionsOfEnvironment(SystemInfo& system) {
  return {system.environment("KORVANE_REGISTRY"), system.environment("KORVANE_RUN_DIR"),
          system.environment("KORVANE_ALLOW_UNSAFE") == "1"};
}

std::shared_ptr<AgentRun> makeRun(Platform& platform) {
  return runOn({std::shared_ptr<void>(), &platform});
}

std::shared_ptr<AgentRun> makeRun(std::shared_ptr<NativePlatform> platform) {
  Platform& capabilities = platform->platform();
  return runOn({std::move(platform), &capabilities});
}

Platform& current() {
  Platform* const platform = AgentRun::current().existing<Platform>(RunPart::platform);
  return platform ? *platform : defaultPlatform();
}

}  // namespace korvane::platform
