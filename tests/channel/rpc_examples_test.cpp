// The examples of docs/rpc.md against the real service, in the order of the page.
#include <gtest/gtest.h>

#include "tests/channel/channel_world.h"
#include "tests/channel/page_examples.h"

namespace korvane {
namespace {

using tests::ChannelWorld;

TEST(RPCPage, everyExampleIsWhatTheServiceAnswers) {
  ChannelWorld world;
  // The agent's own pipe, asked for a second time: the one error that the examples show.
  eventlog::event(10600, "RPC", {231});
  Fifo client(world.machine.fake.pipes, world.machine.sim.clock(), kLocalPipe);
  const std::set<std::string> methods =
      tests::runExamples(KORVANE_RPC_PAGE, client, ChannelWorld::kLongMs);
  for (const char* method :
       {"getTechStatus", "getTechNames", "getAgentVersion", "getStatus", "getSettings",
        "setSettings", "setTrace", "retranslate", "getPolicy", "queryDriver", "testConnection",
        "getLogPointers", "getCounters", "getDiagnostics"})
    EXPECT_TRUE(methods.contains(method)) << method << " has no example";
}

}  // namespace
}  // namespace korvane
