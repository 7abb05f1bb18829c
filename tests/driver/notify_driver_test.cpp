#include "driver/notify_driver.h"

#include <array>
#include <thread>

#include "agent/thread/stop_token.h"
#include "driver/driver_protocol.h"
#include "tests/driver/driver_fixture.h"
#include "tests/support/watchdog.h"

namespace korvane {
namespace {

using platform::DeviceScript;
using platform::DeviceWait;

constexpr auto kQuery = static_cast<int32_t>(KAVIPS_QUERY_POLICY);

class NotifyDriverTest : public DriverFixture {};

TEST_F(NotifyDriverTest, EveryWayARequestCanEndHasItsResultAndEvent) {
  struct Case {
    const char* what;
    DeviceScript script;
    int32_t result;
    int event;  // 0: none
  };
  const std::vector<Case> cases = {
      {"at once", DeviceScript::atOnce(0), 0, 0},
      {"pending, then done", DeviceScript::pending(1, 0), 0, 0},
      {"no completion event", DeviceScript::noEvent(8), 3, 10116},
      {"abandoned", DeviceScript::waitEnds(DeviceWait::abandoned), 3, 10117},
      {"late error", DeviceScript::pending(1, 31), 4, 0},
      {"timed out", DeviceScript::waitEnds(DeviceWait::timedOut), 5, 10118},
      {"failed at once", DeviceScript::atOnce(31), 6, 10119},
      {"more data, at once", DeviceScript::atOnce(234), 6, 10119},
      {"more data", DeviceScript::pending(1, 234), 8, 0},
      {"the wait itself failed", DeviceScript::waitEnds(DeviceWait::failed), 0, 0},
  };
  for (const Case& each : cases) {
    const size_t before = events.all().size();
    fake.devices.queue(KAVIPS_QUERY_POLICY, each.script);
    std::array<char, 16> buffer{};
    EXPECT_EQ(NotifyDriver(kQuery, buffer.data(), buffer.size(), 1000), each.result) << each.what;
    const std::vector<int> now = events.all();
    ASSERT_EQ(now.size() - before, each.event == 0 ? 0u : 1u) << each.what;
    if (each.event != 0) {
      EXPECT_EQ(now.back(), each.event) << each.what;
    }
    EXPECT_EQ(fake.devices.openDevices() + fake.devices.openRequests(), 0) << each.what;
  }
}

TEST_F(NotifyDriverTest, BuffersGoAlongOnlyWithTheCodesThatHaveThem) {
  struct Case {
    uint32_t code;
    size_t input;
    size_t output;
  };
  for (const Case& each :
       {Case{0x80008001, 8, 0}, Case{0x80004024, 0, 8}, Case{0x80004018, 0, 8},
        Case{0x8000402a, 0, 8}, Case{0x8000400e, 0, 8}, Case{0x80008014, 0, 0},
        Case{0x80008008, 0, 0}, Case{0x80008004, 0, 0}, Case{0x80001234, 0, 0}}) {
    const std::vector<std::byte> reply(20, std::byte{0x5A});
    fake.devices.queue(each.code, DeviceScript::pending(0, 0, reply));
    std::array<char, 10> buffer{};  // two bytes behind the part that the driver may have
    EXPECT_EQ(NotifyDriver(static_cast<int32_t>(each.code), buffer.data(), 8, 1000), 0);
    const auto call = fake.devices.calls().back();
    EXPECT_EQ(call.input.size(), each.input) << std::hex << each.code;
    EXPECT_EQ(call.outputSize, each.output) << std::hex << each.code;
    EXPECT_EQ(buffer[7], each.output > 0 ? 0x5A : 0) << std::hex << each.code;
    EXPECT_EQ(buffer[8], 0);
    EXPECT_EQ(NotifyDriver(static_cast<int32_t>(each.code), nullptr, 8, 1000), 0);
  }
}

TEST_F(NotifyDriverTest, ADeviceThatCannotBeOpenedIsReportedOnceARun) {
  for (int run = 0; run < 2; ++run) {
    fake.devices.setOpenError(2);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(NotifyDriver(kQuery, nullptr, 0, 10), 2);
    fake.devices.setOpenError(0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(NotifyDriver(kQuery, nullptr, 0, 10), 0);
  }
  EXPECT_EQ(events.all(), (std::vector<int>{10112, 10400, 10112, 10400}));
  EXPECT_NE(events.text().find("OpenDriver()"), std::string::npos);
}

TEST_F(NotifyDriverTest, AStopEndsTheWaitAndCancelsTheRequest) {
  fake.devices.queue(KAVIPS_QUERY_POLICY, DeviceScript::pending(platform::kInfinite, 0));
  int32_t result = -1;
  std::thread waiting([&] { result = NotifyDriver(kQuery, nullptr, 0, platform::kInfinite); });
  EXPECT_TRUE(tests::waitFor("a request", [&] { return fake.devices.openRequests() > 0; }));
  shutdownToken().request();
  waiting.join();
  EXPECT_EQ(result, 5);

  // One made after the stop does not wait either.
  fake.devices.queue(KAVIPS_QUERY_POLICY, DeviceScript::pending(platform::kInfinite, 0));
  EXPECT_EQ(NotifyDriver(kQuery, nullptr, 0, platform::kInfinite), 5);
  EXPECT_TRUE(events.all().empty()) << "a stop is not a fault of the driver's";
}

TEST_F(NotifyDriverTest, AnotherDriverHasItsOwnDeviceFailuresAndStop) {
  platform::FakePlatform other;
  StopToken stop;
  STRING failure;
  Driver second({other.registry, other.devices, other.systemInfo, other.clock, stop,
                 [] { return Driver::Prevention::off; },
                 [&failure](const STRING& text) { failure = text; }});
  other.devices.setOpenError(2);
  EXPECT_EQ(second.useBuiltIn().code, 2);
  EXPECT_EQ(failure, STRING("Failed to tell Driver to use Builtin Policy"));
  EXPECT_EQ(DriverConfig::getErrorMessage(), STRING());
  EXPECT_EQ(NotifyDriver(kQuery, nullptr, 0, 10), 0);
  EXPECT_EQ(events.all(), std::vector<int>{10112}) << "only the second one's opening had failed";

  shutdownToken().request();
  other.devices.setOpenError(0);
  other.devices.queue(KAVIPS_QUERY_POLICY, DeviceScript::pending(1, 0));
  EXPECT_EQ(second.request(KAVIPS_QUERY_POLICY, {}, 1000), 0);
}

}  // namespace
}  // namespace korvane
