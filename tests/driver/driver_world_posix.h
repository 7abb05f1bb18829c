// The stand-in driver of this system for the tests: the simulator as a process, with a registry
// file and a run directory of its own. POSIX.
#pragma once

#include <gtest/gtest.h>

#include <csignal>
#include <memory>
#include <string>

#include "platform/driver_device.h"
#include "platform/error_codes.h"
#include "platform/platform.h"
#include "platform/processes.h"
#include "platform/registry.h"
#include "stand-in-policy/driver_control.h"
#include "tests/support/temp_directory.h"

namespace korvane::tests {

class DriverWorld {
 public:
  DriverWorld() {
    const std::string services = "System\\CurrentControlSet\\Services\\";
    system.registry.createKey(services + "KAVIPSDriver\\Parameters");
    for (const char* filter : {"KAVIPSNetFilter", "AKAVIPSTcpFilter"}) {
      system.registry.createKey(services + filter);
      system.registry.writeDword(services + filter, "Start", 3);
    }
    start();
  }
  ~DriverWorld() { stop(); }

  void start() {
    const std::string arguments =
        "--run-dir " + folder.path() + " --registry " + at("registry.reg");
    ASSERT_EQ(system.processes.start(KORVANE_DRIVER_SIM, arguments, process), 0u);
    for (int i = 0; !isThere() && i < 1000; ++i)
      ASSERT_EQ(process->wait(10), platform::ProcessWait::timedOut) << "the simulator has ended";
  }
  // Ends it as its operator would.
  void stop() { end(SIGTERM); }
  void end(int signal) {
    if (!process) return;
    kill(static_cast<pid_t>(process->id()), signal);
    EXPECT_EQ(process->wait(10000), platform::ProcessWait::ended);
    process.reset();
  }

  bool isThere() {
    std::unique_ptr<platform::Device> opened;
    return system.devices.open("\\\\.\\KAVIPS", opened) == 0;
  }
  // What the operator is told.
  std::string command(const std::string& words) {
    std::unique_ptr<platform::Device> device;
    std::unique_ptr<platform::DeviceRequest> request;
    if (system.devices.open("\\\\.\\KAVIPS-CONTROL", device) != 0) return "no simulator";
    device->prepare(KVP_COMMAND_CODE, std::as_bytes(std::span(words)), KVP_STATE_BYTES, request);
    if (request->issue() == platform::kErrorIoPending) request->wait(10000);
    return reinterpret_cast<const char*>(request->output().data());
  }
  void setPrevention(bool on) { command(on ? "prevention on" : "prevention off"); }

  // What else the host is told on this system, and how it is told to stop.
  std::string hostOptions() const {
    return "--registry " + at("registry.reg") + " --run-dir " + folder.path();
  }
  void stopHost(platform::Process& host) { kill(static_cast<pid_t>(host.id()), SIGTERM); }

  // A full path as the driver is given it.
  std::string at(const std::string& name) const { return folder.path() + "/" + name; }

  TempDirectory folder;
  std::unique_ptr<platform::NativePlatform> native =
      platform::makeNativePlatform({folder.path() + "/registry.reg", folder.path()});
  platform::Platform& system = native->platform();
  std::unique_ptr<platform::Process> process;
};

}  // namespace korvane::tests
