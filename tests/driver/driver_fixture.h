// A fake platform with the driver's registry keys, a settings store, and the agent's log read back.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "agent/thread/stop_token.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "driver/driver.h"
#include "driver/driver_config.h"
#include "driver/notify_driver.h"
#include "platform/fake/fake_platform.h"
#include "tests/support/logged_events.h"

namespace korvane {

inline constexpr char kParameters[] =
    "System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters";

class DriverFixture : public testing::Test {
 protected:
  DriverFixture() {
    setInstallRoot("/opt/korvane");
    fake.files.makeDirectories("/opt/korvane/IPS");
    fake.registry.put(kParameters, "UseBuiltin", STRING("0"));
    fake.registry.put(kParameters, "Filter File", STRING("/old.conf"));
  }

  std::string parameter(const char* name) {
    STRING value;
    fake.registry.readString(kParameters, name, value);
    return value.toUtf8();
  }
  // How many requests of a control code were made.
  int requests(uint32_t code) {
    int count = 0;
    for (const auto& call : fake.devices.calls()) count += call.controlCode == code;
    return count;
  }

  platform::FakePlatform fake;
  platform::CurrentPlatform current{fake.platform()};
  Driver& driver = currentDriver();
  LoggedEvents events{fake.files};
};

// Puts UTF-16 text into a record.
inline void putText(std::vector<std::byte>& record, size_t offset, const std::u16string& text) {
  for (const char16_t unit : text) {
    record[offset++] = static_cast<std::byte>(unit & 0xFF);
    record[offset++] = static_cast<std::byte>(unit >> 8);
  }
}

inline std::vector<std::byte> policyRecord(bool builtIn,
                                           const std::u16string& name = u"Web servers",
                                           const std::u16string& version = u"3.2",
                                           const std::u16string& id = u"id-7") {
  std::vector<std::byte> record(1028);
  record[2] = static_cast<std::byte>(builtIn ? 1 : 0);
  putText(record, 4, name);
  putText(record, 260, version);
  putText(record, 516, id);
  return record;
}

inline std::vector<std::byte> refusalRecord(const std::u16string& text) {
  std::vector<std::byte> record(516);
  record[0] = std::byte{3};
  putText(record, 4, text);
  return record;
}

}  // namespace korvane
