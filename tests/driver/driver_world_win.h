// The stand-in driver of this system for the tests: kavips.sys, loaded through the service
// manager. There is one device per machine, so a test has it for itself alone; what it
// leaves in the registry goes at its end.
#pragma once

#include <winsock2.h>
//
#include <windows.h>
//
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>

#include "kavips-sys/driver_service.h"
#include "platform/driver_device.h"
#include "platform/handles_win.h"
#include "platform/platform.h"
#include "tests/support/temp_directory.h"

namespace korvane::tests {

// Held while a test uses the machine's one driver.
class DriverTurn {
 public:
  DriverTurn() : _mutex(::CreateMutexW(nullptr, FALSE, L"KorvaneDriverTests")) {
    const DWORD wait = ::WaitForSingleObject(_mutex.get(), 100000);
    EXPECT_TRUE(wait == WAIT_OBJECT_0 || wait == WAIT_ABANDONED) << "another test keeps the driver";
  }
  ~DriverTurn() { ::ReleaseMutex(_mutex.get()); }

 private:
  const platform::KernelObject _mutex;
};

class DriverWorld {
 public:
  DriverWorld() {
    EXPECT_EQ(kavips::removeDriver(), "");
    start();
  }
  ~DriverWorld() {
    EXPECT_EQ(kavips::removeDriver(), "");
    EXPECT_EQ(kavips::setPrevention(false), "");
  }

  void start() { ASSERT_EQ(kavips::loadDriver(KORVANE_KAVIPS_SYS), ""); }
  void stop() { EXPECT_EQ(kavips::unloadDriver(), ""); }

  bool isThere() {
    std::unique_ptr<platform::Device> opened;
    return system.devices.open("\\\\.\\KAVIPS", opened) == 0;
  }
  // What the operator is told.
  std::string command(const std::string& words) {
    std::string reply;
    const std::string problem = kavips::command(words, reply);
    return problem.empty() ? reply : problem;
  }
  void setPrevention(bool on) { EXPECT_EQ(kavips::setPrevention(on), ""); }

  // What else the host is told on this system, and how it is told to stop.
  std::string hostOptions() const { return "--stop-event KorvaneDriverTestsStop"; }
  void stopHost(platform::Process&) { ::SetEvent(_stopHost.get()); }

  // A full path as the driver is given it.
  std::string at(const std::string& name) const {
    std::string path = folder.path() + "\\" + name;
    std::replace(path.begin(), path.end(), '/', '\\');
    return path;
  }

  DriverTurn turn;
  TempDirectory folder;
  std::unique_ptr<platform::NativePlatform> native = platform::makeNativePlatform({});
  platform::Platform& system = native->platform();

 private:
  const platform::KernelObject _stopHost{
      ::CreateEventW(nullptr, /*bManualReset=*/FALSE, FALSE, L"KorvaneDriverTestsStop")};
};

}  // namespace korvane::tests
