// What a driver's device answers, of any length and content: names, version and identifier stay within
// their fields, and a refusal has a text. The first byte is the result of each request.
#include <algorithm>
#include <cstdlib>

#include "agent/thread/stop_token.h"
#include "driver/driver.h"
#include "driver/driver_protocol.h"
#include "driver/driver_values.h"
#include "platform/fake/fake_platform.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace korvane;
  static platform::FakePlatform fake;
  static const platform::CurrentPlatform current(fake.platform());
  static StopToken stop;
  if (size == 0) return 0;
  std::vector<std::byte> output(size - 1);
  std::transform(data + 1, data + size, output.begin(), [](uint8_t b) { return std::byte{b}; });
  const uint32_t result = data[0];
  fake.devices.setHandler([&](const platform::FakeDevices::Call&) {
    return result % 2 ? platform::DeviceScript::pending(0, result / 2, output)
                      : platform::DeviceScript::atOnce(result / 2, output);
  });
  Driver driver({fake.registry, fake.devices, fake.systemInfo, fake.clock, stop,
                 [] { return Driver::Prevention::on; }, [](const STRING&) {}});
  AppliedPolicy policy;
  const DriverResult asked = driver.queryPolicy(policy);
  if (!asked.ok() && asked.text.empty()) std::abort();
  if (policy.name.length() > KAVIPS_POLICY_NAME_BYTES / 2 ||
      policy.version.length() > KAVIPS_POLICY_VERSION_BYTES / 2 ||
      policy.id.length() > KAVIPS_POLICY_ID_BYTES / 2)
    std::abort();
  const DriverResult loaded = driver.newPolicy("/driver/policy1.conf");
  if (!loaded.ok() && (loaded.text.empty() || loaded.text.length() > 4096)) std::abort();
  return 0;
}
