// The examples of docs/rpc.md against the real service, in the order of the page.
#include <gtest/gtest.h>

#include "discovery/delivery_state.h"
#include "tests/channel/channel_world.h"
#include "tests/channel/page_examples.h"
#include "util/sha256.h"

namespace korvane {
namespace {

using tests::ChannelWorld;

TEST(RPCPage, everyExampleIsWhatTheServiceAnswers) {
  ChannelWorld world;
  // The agent's own pipe, asked for a second time: the one error that the examples show.
  eventlog::event(10600, "RPC", {231});
  // What a collection has left.
  world.machine.fake.files.put("/opt/korvane/IPS/appdata/inventory.zip", "12345");
  world.machine.fake.files.put("/opt/korvane/IPS/appdata/delivery.state",
                               deliveryStateText({.request = "local-20261122T101530Z",
                                                  .outcome = DeliveryState::Outcome::data,
                                                  .error = {},
                                                  .complete = true,
                                                  .rows = 5321,
                                                  .skipped = 2,
                                                  .applicationsChecksum = {},
                                                  .filesChecksum = {},
                                                  .size = 5,
                                                  .sha256 = sha256Hex("12345")}));
  Fifo client(world.machine.fake.pipes, world.machine.sim.clock(), kLocalPipe);
  const std::set<std::string> methods =
      tests::runExamples(KORVANE_RPC_PAGE, client, ChannelWorld::kLongMs);
  for (const char* method :
       {"getTechStatus", "getTechNames", "getAgentVersion", "getStatus", "getSettings",
        "setSettings", "setTrace", "retranslate", "getPolicy", "queryDriver", "testConnection",
        "getLogPointers", "getCounters", "getDiagnostics", "collectApplicationData",
        "getApplicationData", "releaseApplicationData"})
    EXPECT_TRUE(methods.contains(method)) << method << " has no example";
}

}  // namespace
}  // namespace korvane
