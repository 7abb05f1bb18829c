// What every Devices must do with a driver that answers in all the ways there are: the system's own
// against a stand-in behind its socket, and the scripted one.
#include <gtest/gtest.h>

#include <string>

#include "platform/error_codes.h"
#include "platform/fake/fake_devices.h"
#include "platform/native.h"
#include "tests/platform/patience.h"

// The world of the system's own devices, where the tests can have a driver.
#include KORVANE_DEVICE_WORLDS

namespace korvane::platform {
namespace {

constexpr char kName[] = "\\\\.\\KAVIPS";

struct FakeDeviceWorld {
  const std::string name = kName;
  std::unique_ptr<Threading> threading = makeNativeThreading();
  FakeDevices devices{*threading};
  FakeDeviceWorld() {
    devices.setHandler([](const FakeDevices::Call& call) -> std::optional<DeviceScript> {
      switch (call.controlCode) {
        case kEcho:
          return DeviceScript::atOnce(kOk, call.input);
        case kRefuseAtOnce:
          return DeviceScript::atOnce(kErrorInvalidParameter);
        case kLateEcho:
          return DeviceScript::pending(1, kOk, call.input);
        case kLateError:
          return DeviceScript::pending(1, kErrorGenFailure);
        case kLateMoreData:
          return DeviceScript::pending(
              1, kErrorMoreData,
              std::vector<std::byte>(call.outputSize, static_cast<std::byte>('m')));
        default:
          return DeviceScript::pending(kInfinite, kOk);
      }
    });
  }
};

template <class World>
class DevicesConformance : public testing::Test {
 protected:
  World world;
  std::unique_ptr<Device> device;
  std::unique_ptr<DeviceRequest> request;

  void prepare(uint32_t code, const std::string& input = "", size_t outputSize = 0) {
    if (!device) {
      ASSERT_EQ(world.devices.open(world.name, device), kOk);
    }
    ASSERT_EQ(device->prepare(code, std::as_bytes(std::span(input)), outputSize, request), kOk);
  }

  std::string output() {
    const auto bytes = request->output();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }
};

TYPED_TEST_SUITE(DevicesConformance, NativeDeviceWorlds::With<FakeDeviceWorld>);

TYPED_TEST(DevicesConformance, requestsThatFinishAtOnce) {
  this->prepare(kEcho, "abc", 5);
  EXPECT_EQ(this->request->issue(), kOk);
  EXPECT_EQ(this->output(), std::string("abc\0\0", 5)) << "zeros beyond what was written";
  this->prepare(kRefuseAtOnce);
  EXPECT_EQ(this->request->issue(), kErrorInvalidParameter);
  this->prepare(kEcho);
  EXPECT_EQ(this->request->issue(), kOk) << "the device serves on after a failure";
}

TYPED_TEST(DevicesConformance, requestsThatFinishLater) {
  struct Case {
    uint32_t code, result;
    std::string output;
  };
  for (const Case& expected :
       {Case{kLateEcho, kOk, "abc"}, Case{kLateError, kErrorGenFailure, {0, 0, 0}},
        Case{kLateMoreData, kErrorMoreData, "mmm"}}) {
    this->prepare(expected.code, "abc", 3);
    EXPECT_EQ(this->request->issue(), kErrorIoPending) << expected.code;
    EXPECT_EQ(this->request->wait(kLongMs), DeviceWait::signalled) << expected.code;
    EXPECT_EQ(this->request->result(), expected.result);
    EXPECT_EQ(this->output(), expected.output);
  }
}

TYPED_TEST(DevicesConformance, aRequestThatNeverFinishesTimesOutAndIsCancelled) {
  this->prepare(kNever, "abc", 3);
  ASSERT_EQ(this->request->issue(), kErrorIoPending);
  EXPECT_EQ(this->request->wait(0), DeviceWait::timedOut);
  EXPECT_EQ(this->request->wait(20), DeviceWait::timedOut);
  this->request->cancel();
  EXPECT_EQ(this->request->wait(kLongMs), DeviceWait::signalled);
  EXPECT_EQ(this->request->result(), kErrorOperationAborted);

  this->prepare(kNever);
  ASSERT_EQ(this->request->issue(), kErrorIoPending);
  this->request.reset();
  this->device.reset();
}

TYPED_TEST(DevicesConformance, interruptEndsAWaitAndEveryLaterOne) {
  this->prepare(kNever);
  ASSERT_EQ(this->request->issue(), kErrorIoPending);
  const auto threading = makeNativeThreading();
  const auto interrupter = threading->createThread(0, [&] { this->request->interrupt(); });
  EXPECT_EQ(this->request->wait(kLongMs), DeviceWait::interrupted);
  EXPECT_EQ(this->request->wait(kLongMs), DeviceWait::interrupted);
  interrupter->join(kLongMs);
}

class FakeDeviceTest : public testing::Test {
 protected:
  std::unique_ptr<Threading> threading = makeNativeThreading();
  FakeDevices devices{*threading};
};

TEST_F(FakeDeviceTest, givesWhatNoRealDeviceGivesOnDemand) {
  std::unique_ptr<Device> device;
  std::unique_ptr<DeviceRequest> request;
  devices.setOpenError(kErrorFileNotFound);
  EXPECT_EQ(devices.open(kName, device), kErrorFileNotFound);
  devices.setOpenError(kOk);
  ASSERT_EQ(devices.open(kName, device), kOk);
  devices.queue(9, DeviceScript::noEvent(kErrorNotEnoughMemory));
  EXPECT_EQ(device->prepare(9, {}, 0, request), kErrorNotEnoughMemory);
  for (const DeviceWait outcome :
       {DeviceWait::abandoned, DeviceWait::failed, DeviceWait::timedOut}) {
    devices.queue(9, DeviceScript::waitEnds(outcome));
    ASSERT_EQ(device->prepare(9, {}, 0, request), kOk);
    EXPECT_EQ(request->issue(), kErrorIoPending);
    EXPECT_EQ(request->wait(kLongMs), outcome);
  }
  EXPECT_EQ(devices.calls().size(), 4u);
  EXPECT_EQ(devices.openRequests(), 1);
  request.reset();
  device.reset();
  EXPECT_EQ(devices.openRequests() + devices.openDevices(), 0);
}

}  // namespace
}  // namespace korvane::platform
