// The agent, started and stopped again and again, in one process and as a service, leaves nothing
// behind. KORVANE_CYCLES says how often; 20 times otherwise.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "config/install_root.h"
#include "platform/registry.h"
#include "platform/system_info.h"
#include "tests/service/installation_win.h"
#include "tests/service/process_figures_win.h"

namespace korvane {
namespace {

using tests::figuresOf;
using tests::Installation;
using tests::ProcessFigures;

// A standard agent without a server waits 20 seconds for its next attempt to register.
constexpr char kInPause[] = "unsuccessful registration";
constexpr char kStarted[] = ",10106,";
constexpr size_t kWarmUp = 5;
constexpr int64_t kStopLimitMs = 5000;
// What is made once, when it is first needed, is no leak: one a cycle would be at least 20.
constexpr int64_t kMadeLate = 4;

size_t cycles() {
  const std::string wanted = platform::current().systemInfo.environment("KORVANE_CYCLES");
  return wanted.empty() ? 20 : std::stoul(wanted);
}

int64_t now() {
  return platform::current().clock.monotonicMs();
}

// The registry's service type for as long as the object lives.
class ServiceType {
 public:
  explicit ServiceType(const char* type) {
    registry().createKey(kAgentRegistryKey);
    if (registry().readString(kAgentRegistryKey, "AgentType", _before) != 0) _before = "0";
    registry().writeString(kAgentRegistryKey, "AgentType", type);
  }
  ~ServiceType() { registry().writeString(kAgentRegistryKey, "AgentType", _before); }

 private:
  static platform::Registry& registry() { return platform::current().registry; }
  STRING _before;
};

template <class Function>
Function find(const char* name) {
  static const HMODULE library =
      ::LoadLibraryExW(platform::widePath(KORVANE_AGENT_LIBRARY).c_str(), nullptr,
                       LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_SYSTEM32);
  return reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(library, name)));
}

// One start and stop in this process; the milliseconds that the stop took, or -1.
int64_t cycleHere(const Installation& agent, const char* reached, size_t round) {
  const auto start = find<void* (*)()>("startAgent");
  const auto stop = find<const char* (*)()>("stopAgent");
  std::thread host([&] { EXPECT_NE(start(), nullptr); });
  const bool there = tests::eventually([&] { return agent.logged(reached) >= round; });
  const int64_t begun = now();
  stop();
  host.join();
  return there ? now() - begun : -1;
}

TEST(Cycles, InOneProcessLeaveNoHandleThreadOrMegabyte) {
  const std::pair<const char*, const char*> cases[] = {{"1", kInPause}, {"0", kStarted}};
  for (const auto& [type, reached] : cases) {
    SCOPED_TRACE(type);
    const ServiceType chosen(type);
    const Installation agent;
    agent.configure();
    ::SetEnvironmentVariableW(L"KORVANE_INSTALL_ROOT", platform::wide(agent.root()).c_str());
    ProcessFigures warm;
    int64_t longest = 0;
    for (size_t round = 1; round <= kWarmUp + cycles(); ++round) {
      const int64_t took = cycleHere(agent, reached, round);
      ASSERT_GE(took, 0) << "round " << round;
      longest = std::max(longest, took);
      if (round == kWarmUp) warm = figuresOf(::GetCurrentProcessId());
    }
    const ProcessFigures end = figuresOf(::GetCurrentProcessId());
    std::printf("type %s, %zu cycles: first %s; last %s; longest stop %lld ms\n", type, cycles(),
                warm.text().c_str(), end.text().c_str(), static_cast<long long>(longest));
    EXPECT_LT(longest, kStopLimitMs);
    EXPECT_GT(warm.handles, 0);
    EXPECT_LE(end.handles, warm.handles + kMadeLate);
    EXPECT_LE(end.threads, warm.threads);
    EXPECT_LT(end.residentKb, warm.residentKb + 1024);
  }
}

TEST(Cycles, AsAServiceEachProcessIsLikeTheFirstAndEnds) {
  const ServiceType standard("1");
  const Installation agent;
  agent.configure();
  ASSERT_EQ(agent.install().status, 0u);
  machine::Service service = agent.service();
  ProcessFigures first;
  ProcessFigures last;
  int64_t longest = 0;
  for (size_t round = 1; round <= cycles(); ++round) {
    service.start();
    const DWORD process = service.status().dwProcessId;
    ASSERT_TRUE(tests::eventually([&] { return agent.logged(kInPause) >= round; })) << round;
    last = figuresOf(process);
    if (round == 1) first = last;
    longest = std::max(longest, service.stop());
    EXPECT_EQ(service.status().dwWin32ExitCode, DWORD{NO_ERROR});
    EXPECT_EQ(figuresOf(process).handles, 0) << "the process is still there";
  }
  std::printf("%zu services: first %s; last %s; longest stop %lld ms\n", cycles(),
              first.text().c_str(), last.text().c_str(), static_cast<long long>(longest));
  EXPECT_LT(longest, kStopLimitMs);
  EXPECT_GT(first.handles, 0);
  EXPECT_LE(last.handles, first.handles + kMadeLate);
  EXPECT_LE(last.threads, first.threads + 1);
  EXPECT_LT(last.residentKb, first.residentKb + 1024);
}

}  // namespace
}  // namespace korvane
