// The system's own devices for the conformance suite: a kernel driver of the tests, loaded as a
// service of this process's own for as long as the world lives.
#pragma once

#include <winsock2.h>
//
#include <windows.h>
//
#include <gtest/gtest.h>

#include "platform/driver_device.h"
#include "platform/native.h"
#include "platform/wide_win.h"
#include "tests/platform/device_codes.h"

namespace korvane::platform {

class LoadedDriver {
 public:
  explicit LoadedDriver(const std::string& name)
      : _manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS)),
        _service(::CreateServiceW(_manager, wide(name).c_str(), nullptr, SERVICE_ALL_ACCESS,
                                  SERVICE_KERNEL_DRIVER, SERVICE_DEMAND_START, SERVICE_ERROR_IGNORE,
                                  widePath(KORVANE_TEST_DRIVER).c_str(), nullptr, nullptr, nullptr,
                                  nullptr, nullptr)) {
    EXPECT_TRUE(_service && ::StartServiceW(_service, 0, nullptr))
        << "no driver: " << systemText(::GetLastError());
  }
  ~LoadedDriver() {
    SERVICE_STATUS status;
    ::ControlService(_service, SERVICE_CONTROL_STOP, &status);
    ::DeleteService(_service);
    ::CloseServiceHandle(_service);
    ::CloseServiceHandle(_manager);
  }
  LoadedDriver(const LoadedDriver&) = delete;
  LoadedDriver& operator=(const LoadedDriver&) = delete;

 private:
  const SC_HANDLE _manager;
  const SC_HANDLE _service;
};

struct DriverWorld {
  const std::string service = "KorvaneTest" + std::to_string(::GetCurrentProcessId());
  const std::string name = "\\\\.\\" + service;
  LoadedDriver driver{service};
  std::unique_ptr<Devices> owned = makeNativeDevices({});
  Devices& devices = *owned;
};

struct NativeDeviceWorlds {
  template <class Fake>
  using With = testing::Types<DriverWorld, Fake>;
};

}  // namespace korvane::platform
