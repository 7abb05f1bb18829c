// The system's own devices for the conformance suite: a stand-in behind the simulator's socket.
#pragma once

#include <gtest/gtest.h>

#include "platform/driver_device.h"
#include "platform/native.h"
#include "tests/platform/device_codes.h"
#include "tests/platform/simulator_stand_in.h"
#include "tests/support/temp_directory.h"

namespace korvane::platform {

struct SimulatorWorld {
  const std::string name = "\\\\.\\KAVIPS";
  tests::TempDirectory directory;
  std::unique_ptr<Devices> owned = makeNativeDevices({"", directory.path()});
  Devices& devices = *owned;
  tests::SimulatorStandIn simulator{directory.path() + "/kavips.sock", serve};

  static tests::SimulatorReply serve(const tests::SimulatorRequest& request) {
    const auto reply = [&](SimulatorFrame kind, uint32_t error, const std::string& output = "") {
      return tests::SimulatorReply{tests::simulatorFrame(kind, request.number, error, output)};
    };
    switch (request.code) {
      case kEcho:
        return reply(SimulatorFrame::answerAtOnce, 0, request.input);
      case kRefuseAtOnce:
        return reply(SimulatorFrame::answerAtOnce, 87);
      case kLateEcho:
        return reply(SimulatorFrame::answer, 0, request.input);
      case kLateError:
        return reply(SimulatorFrame::answer, 31);
      case kLateMoreData:
        return reply(SimulatorFrame::answer, 234, std::string(request.outputSize, 'm'));
      default:
        return {};
    }
  }
};

struct NativeDeviceWorlds {
  template <class Fake>
  using With = testing::Types<SimulatorWorld, Fake>;
};

}  // namespace korvane::platform
