// The pipes that the channel's tests run on: the system's own, and those in memory.
#pragma once

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "platform/fake/fake_platform.h"
#include "platform/native.h"
#include "tests/support/temp_directory.h"

namespace korvane::tests {

struct NativePipes {
  TempDirectory directory;
  std::unique_ptr<platform::Pipes> owned = platform::makeNativePipes({"", directory.path()});
  platform::Pipes& pipes = *owned;
};

struct MemoryPipes {
  std::unique_ptr<platform::Threading> threading = platform::makeNativeThreading();
  platform::FakePipes pipes{*threading};
};

using PipeWorlds = testing::Types<NativePipes, MemoryPipes>;

// For waits that are expected to end by themselves.
inline constexpr int kLongMs = 20000;

// Windows has one space of names for all processes.
inline std::string uniquePipeName() {
  static const std::string ofProcess = std::to_string(std::random_device()());
  static int count = 0;
  return "korvane-test-" + ofProcess + "-" + std::to_string(++count);
}

}  // namespace korvane::tests
