// The exports of the real library, called in this process as a host calls them.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "agent/exports.h"
#include "tests/e2e/installed_agent.h"

namespace korvane {
namespace {

using tests::InstalledAgent;

constexpr char kStopText[] = "The agent STOPPED and returned";

template <class Function>
Function* find(const char* name) {
  static void* const library = dlopen(KORVANE_AGENT_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  return reinterpret_cast<Function*>(library ? dlsym(library, name) : nullptr);
}

TEST(Library, StartsAndStopsAgainAndAgainFromSeveralThreads) {
  const auto start = find<decltype(startAgent)>("startAgent");
  const auto stop = find<decltype(stopAgent)>("stopAgent");
  const auto shuttingDown = find<bool()>("_ZN7korvane11AgentConfig19isAgentShuttingDownEv");
  ASSERT_TRUE(start && stop && shuttingDown);
  EXPECT_STREQ(stop(), kStopText) << "before there is any agent";
  EXPECT_FALSE(shuttingDown());
  for (int type : {0, 2, 3, 1}) {
    SCOPED_TRACE(type);
    InstalledAgent agent(type);
    agent.configure(1);  // nobody listens there
    setenv("KORVANE_INSTALL_ROOT", agent.path("root").c_str(), 1);
    setenv("KORVANE_REGISTRY", agent.path("registry.reg").c_str(), 1);
    setenv("KORVANE_RUN_DIR", agent.path("run").c_str(), 1);
    AgentInfo* info = nullptr;
    std::thread host([&] { info = start(); });
    ASSERT_TRUE(agent.logged(type == 1 ? "unsuccessful registration" : ",10112,"))
        << "each start tells anew that there is no driver";
    EXPECT_EQ(start(), nullptr) << "one agent at a time";
    std::vector<std::thread> stoppers;
    for (int i = 0; i < 3; ++i) stoppers.emplace_back([&] { EXPECT_STREQ(stop(), kStopText); });
    for (std::thread& stopper : stoppers) stopper.join();
    host.join();
    EXPECT_NE(info, nullptr);
    EXPECT_TRUE(shuttingDown());
    EXPECT_STREQ(stop(), kStopText) << "after it";
    const std::string started = "IPS service started type: " + std::to_string(type);
    EXPECT_NE(agent.log().find(started), std::string::npos);
    EXPECT_NE(agent.log().find(",10110,"), std::string::npos);
  }
}

}  // namespace
}  // namespace korvane
