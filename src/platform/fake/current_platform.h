// Runs on a platform of the test's choice.
#pragma once

#include <memory>

#include "platform/platform.h"

namespace korvane::platform {

// Begins a run of its own on a platform, as the process's, for a scope.
class CurrentPlatform {
 public:
  explicit CurrentPlatform(Platform& platform) : _run(makeRun(platform)) {}

 private:
  ProcessRunScope _run;
};

// Puts another platform into the current run for a scope. What the run has made of the
// former one stays.
class OtherPlatform {
 public:
  explicit OtherPlatform(Platform& platform) : _former(current()) { put(platform); }
  ~OtherPlatform() { put(_former); }
  OtherPlatform(const OtherPlatform&) = delete;
  OtherPlatform& operator=(const OtherPlatform&) = delete;

 private:
  static void put(Platform& platform) {
    AgentRun::current().put(RunPart::platform,
                            std::shared_ptr<Platform>(std::shared_ptr<void>(), &platform));
  }

  Platform& _former;
};

}  // namespace korvane::platform
