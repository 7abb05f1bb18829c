// What the simulator as a process does with its sockets.
#include <gtest/gtest.h>

#include <filesystem>

#include "tests/driver/driver_world_posix.h"

namespace korvane {
namespace {

namespace fs = std::filesystem;

TEST(SimulatorProcess, ItsSocketsAreItsUsersAloneAndGoWithIt) {
  tests::DriverWorld world;
  EXPECT_EQ(fs::status(world.at("kavips.sock")).permissions(),
            fs::perms::owner_read | fs::perms::owner_write);
  world.stop();
  EXPECT_FALSE(fs::exists(world.at("kavips.sock")));
  EXPECT_FALSE(fs::exists(world.at("kavips-control.sock")));
}

TEST(SimulatorProcess, OneThatWasKilledLeavesItsSocketsToTheNext) {
  tests::DriverWorld world;
  world.end(SIGKILL);
  EXPECT_TRUE(fs::exists(world.at("kavips.sock")));
  world.start();
  EXPECT_TRUE(world.isThere());
}

}  // namespace
}  // namespace korvane
