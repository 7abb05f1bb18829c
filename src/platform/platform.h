// The operating system as a value: all capabilities of the seam, one interface each. Each has a header of its
// own, which its users include beside this one.
//
// The composition root makes a native platform and hands it down. The static classes and singletons of the
// system (DriverConfig, HttpsHandler's shared state, AgentConfig, the thread classes) reach it through
// current(), which the root sets before anything else runs and tests set to a fake one. A Platform owns
// nothing that outlives it: whoever set it as current keeps it alive until after the last use.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/fwd.h"

namespace korvane::platform {

struct Platform {
  Clock& clock;
  Threading& threading;
  Files& files;
  Registry& registry;
  Devices& devices;
  Processes& processes;
  Sockets& sockets;
  SystemInfo& systemInfo;
  SharedLibraries& sharedLibraries;
  Pipes& pipes;
};

// Where the Linux build finds what Windows has of itself. Windows ignores them.
struct NativeOptions {
  std::string registryFile;  // the .reg file
  std::string runDirectory;  // sockets of the driver simulator and the local channel
};

// The real system. The object owns the capabilities that its platform() refers to.
class NativePlatform {
 public:
  virtual ~NativePlatform() = default;
  virtual Platform& platform() = 0;
};
[[nodiscard]] std::unique_ptr<NativePlatform> makeNativePlatform(const NativeOptions& options);

// The platform in use. Before one is set it is a native one without registry file and run directory.
Platform& current();
// Sets it; null goes back to the default. Not to be called while other threads of the agent run.
void setCurrent(Platform* platform);
// How often setCurrent() has been called. Locks and tokens of static lifetime compare it, so that they make
// their primitives anew after a change. Any thread; cheap.
uint64_t currentGeneration();

}  // namespace korvane::platform
