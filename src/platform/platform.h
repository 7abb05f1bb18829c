// The operating system as a value: all capabilities of the seam, one interface each. Each has a
// header of its own, which its users include beside this one.
//
// The composition root makes a native platform, puts it into the agent's run and hands it down; a
// test does so with a fake one. The static classes and singletons of the system (DriverConfig,
// HttpsHandler, AgentConfig, the thread classes) reach it through current().
#pragma once

#include <memory>
#include <string>

#include "platform/fwd.h"
#include "util/agent_run.h"

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
  Rights& rights;
};

// Where the Linux build finds what Windows has of itself, which ignores it.
struct NativeOptions {
  std::string registryFile;  // the .reg file
  std::string runDirectory;  // sockets of the driver simulator and the local channel
  // On every system: files that strangers may change are told and used all the same.
  bool unsafeFilesAllowed = false;
};

// The real system. The object owns the capabilities that its platform() refers to.
class NativePlatform {
 public:
  virtual ~NativePlatform() = default;
  virtual Platform& platform() = 0;
};
[[nodiscard]] std::unique_ptr<NativePlatform> makeNativePlatform(const NativeOptions& options);
// What a host has put into the environment: KORVANE_REGISTRY, KORVANE_RUN_DIR, KORVANE_ALLOW_UNSAFE=1.
NativeOptions optionsOfEnvironment(SystemInfo& system);

// A new run on a platform, which the caller keeps alive for longer than the run, or which
// the run owns.
[[nodiscard]] std::shared_ptr<AgentRun> makeRun(Platform& platform);
[[nodiscard]] std::shared_ptr<AgentRun> makeRun(std::shared_ptr<NativePlatform> platform);

// The platform of the current run. One that was given none has a native one, with the options that
// a host would have put into the environment.
Platform& current();

}  // namespace korvane::platform
