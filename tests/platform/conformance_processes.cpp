// What every Processes must do: the system's own with the tests' child program, and the
// scripted one.
#include <gtest/gtest.h>

#include <algorithm>

#include "platform/error_codes.h"
#include "platform/fake/fake_processes.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "tests/platform/patience.h"

namespace korvane::platform {
namespace {

struct NativeProcessesWorld {
  std::unique_ptr<Processes> owned = makeNativeProcesses();
  Processes& processes = *owned;
};

struct FakeProcessesWorld {
  std::unique_ptr<Threading> threading = makeNativeThreading();
  FakeProcesses processes{*threading};
  FakeProcessesWorld() {
    processes.install(KORVANE_TEST_CHILD, [this](const std::string& arguments) {
      processes.setRunning(fileNameOf(KORVANE_TEST_CHILD), true);
      if (arguments == "hang") return ProgramRun{0, kInfinite};
      if (arguments == "count a \"b c\" d\" \"e") return ProgramRun{32, 0};
      return ProgramRun{static_cast<uint32_t>(std::stoi(arguments.substr(5))), 0};
    });
  }
};

template <class World>
class ProcessesConformance : public testing::Test {
 protected:
  World world;
  Processes& processes = world.processes;

  std::unique_ptr<Process> start(const std::string& arguments) {
    std::unique_ptr<Process> process;
    EXPECT_EQ(processes.start(KORVANE_TEST_CHILD, arguments, process), kOk);
    return process;
  }

  uint32_t codeOf(const std::string& arguments) {
    const auto process = start(arguments);
    uint32_t code = 0xBAD;
    EXPECT_EQ(process->wait(kLongMs), ProcessWait::ended);
    EXPECT_TRUE(process->exitCode(code));
    return code;
  }
};

using ProcessesWorlds = testing::Types<NativeProcessesWorld, FakeProcessesWorld>;
TYPED_TEST_SUITE(ProcessesConformance, ProcessesWorlds);

TYPED_TEST(ProcessesConformance, exitCodesAndArgumentsPass) {
  EXPECT_EQ(this->codeOf("exit 0"), 0u);
  EXPECT_EQ(this->codeOf("exit 77"), 77u);
  EXPECT_EQ(this->codeOf("count a \"b c\" d\" \"e"), 32u) << "three arguments, two blanks in them";
}

TYPED_TEST(ProcessesConformance, whatCannotBeStartedHasItsNumber) {
  std::unique_ptr<Process> process;
  EXPECT_EQ(this->processes.start("/no/such/program", "", process), kErrorFileNotFound);
  EXPECT_EQ(this->processes.start("relative", "", process), kErrorInvalidParameter);
  EXPECT_EQ(process, nullptr);
}

TYPED_TEST(ProcessesConformance, aRunningChildTimesOutIsInterruptedAndEnded) {
  const auto process = this->start("hang");
  uint32_t code = 0xBAD;
  EXPECT_EQ(process->wait(0), ProcessWait::timedOut);
  EXPECT_EQ(process->wait(20), ProcessWait::timedOut);
  EXPECT_FALSE(process->exitCode(code));
  EXPECT_EQ(code, 0xBADu);
  EXPECT_NE(process->id(), this->processes.currentId());
  EXPECT_TRUE(this->processes.isRunning(fileNameOf(KORVANE_TEST_CHILD)));
  process->interrupt();
  EXPECT_EQ(process->wait(kLongMs), ProcessWait::interrupted);
  EXPECT_EQ(process->wait(kLongMs), ProcessWait::interrupted) << "every later one, too";
  EXPECT_EQ(process->terminate(), kOk);
  while (process->wait(10) != ProcessWait::ended) continue;
  EXPECT_TRUE(process->exitCode(code));
  EXPECT_NE(code, 0u);
  EXPECT_EQ(process->terminate(), kErrorAccessDenied) << "it has ended already";
  EXPECT_FALSE(this->processes.isRunning("no-such-image.exe"));
}

}  // namespace
}  // namespace korvane::platform
