// A whole platform of fakes, on real threads or on simulated ones.
//
// Lifetime: owns its fakes; with a SimThreading it refers to that, which must outlive it.
//
//   FakePlatform fake;
//   CurrentPlatform current(fake.platform());
//   fake.files.put("/opt/korvane/IPS/agent.ini", "...");
//   fake.clock.advance(1000);
#pragma once

#include <memory>

#include "platform/fake/current_platform.h"
#include "platform/fake/fake_devices.h"
#include "platform/fake/fake_pipes.h"
#include "platform/fake/fake_processes.h"
#include "platform/fake/fake_rights.h"
#include "platform/fake/fake_sockets.h"
#include "platform/fake/fake_system.h"
#include "platform/fake/manual_clock.h"
#include "platform/fake/memory_files.h"
#include "platform/fake/memory_registry.h"
#include "platform/fake/sim_threading.h"
#include "platform/native.h"
#include "platform/platform.h"

namespace korvane::platform {

class FakePlatform {
 public:
  // Real threads, and `clock` for the time.
  FakePlatform() : FakePlatform(nullptr) {}
  // Simulated threads with their simulated time; `clock` is not used.
  explicit FakePlatform(SimThreading& sim) : FakePlatform(&sim) {}

  Platform& platform() { return _platform; }

  ManualClock clock;

 private:
  explicit FakePlatform(SimThreading* sim)
      : _native(sim ? nullptr : makeNativeThreading()),
        _threading(sim ? static_cast<Threading&>(*sim) : *_native),
        _time(sim ? sim->clock() : clock) {}

  const std::unique_ptr<Threading> _native;
  Threading& _threading;
  Clock& _time;

 public:
  MemoryFiles files{_time};
  MemoryRegistry registry;
  FakeDevices devices{_threading};
  FakeProcesses processes{_threading};
  FakeSockets sockets{_threading};
  FakeSystemInfo systemInfo;
  FakeLibraries libraries;
  FakePipes pipes{_threading};
  FakeRights rights;

 private:
  Platform _platform{_time,   _threading, files,     registry, devices, processes,
                     sockets, systemInfo, libraries, pipes,    rights};
};

// The platform with other files: wrappers that record or fail.
inline Platform withFiles(const Platform& of, Files& files) {
  return {of.clock,           of.threading, files,      of.registry,
          of.devices,         of.processes, of.sockets, of.systemInfo,
          of.sharedLibraries, of.pipes,     of.rights};
}

}  // namespace korvane::platform
