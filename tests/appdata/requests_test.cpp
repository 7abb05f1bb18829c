// Who asks when, and what comes of a request beside another one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "discovery/app_data_processing_thread.h"
#include "discovery/generic_app_data_processing_thread.h"
#include "tests/appdata/appdata_world.h"

namespace korvane::tests {
namespace {

using testing::ElementsAre;
using testing::SizeIs;
using Asked = AppDataRequests::Asked;
using Stage = AppDataRequests::Stage;

std::vector<std::string> requestsOf(const AppDataWorld& world) {
  std::vector<std::string> all;
  for (const auto& message : world.messages) all.push_back(message.of("application.requestID"));
  return all;
}

// A thread of application data, for the time that the object lives.
class Running {
 public:
  Running(AppDataWorld& world, std::unique_ptr<Thread> thread)
      : _machine(world.machine), _thread(std::move(thread)) {
    _thread->start();
    _machine.sim.runFor(1);
  }
  ~Running() {
    _thread->stop();
    EXPECT_TRUE(_thread->waitEnded(100));
  }

 private:
  SimulatedMachine& _machine;
  std::unique_ptr<Thread> _thread;
};

std::unique_ptr<Thread> generic(AppDataWorld& world, bool server, bool serves = true) {
  return std::make_unique<GenericAppDataProcessingThread>(world.parts(server), serves);
}

TEST(AppDataRequests, ALaterOneIsServedAfterwardsAndTheLastOfThemCounts) {
  AppDataWorld world;
  EXPECT_EQ(world.ask("r-1"), Asked::begun);
  EXPECT_EQ(world.ask("r-1"), Asked::same);
  EXPECT_EQ(world.ask("r-2"), Asked::remembered);
  EXPECT_EQ(world.ask("r-3"), Asked::remembered);
  EXPECT_EQ(world.ask(std::string(1001, 'x').c_str()), Asked::passedOver);
  EXPECT_EQ(world.requests().ask(world.kept(), "own", /*remember=*/false), Asked::passedOver);
  world.machine.beginRun();  // it survives the agent
  world.serve();
  EXPECT_THAT(requestsOf(world), ElementsAre("r-1", "r-3"));
  EXPECT_EQ(world.messages[1].of("application.data.outcome"), "unchanged");
  EXPECT_EQ(world.inventory.collections, 2);
  EXPECT_FALSE(world.config().isAppDataRequested());
}

TEST(AppDataRequests, ComeToTheThreadThatWaitsAndToOneThatStarts) {
  AppDataWorld world("appdata.requested=true\nappdata.request.id=r-1\n");
  const Running thread(world, generic(world, true));
  world.machine.sim.runFor(1000);
  EXPECT_THAT(requestsOf(world), ElementsAre("r-1"));
  world.ask("r-2");
  world.machine.sim.runFor(1000);
  // Another program may ask in agent.ini; nobody can be answered without an identifier.
  world.config().setAppDataRequested(true);
  world.machine.sim.runFor(1000);
  EXPECT_FALSE(world.config().isAppDataRequested());
  {
    const SettingsFile::ChangeGroup group(world.settings().file);
    world.config().setAppDataRequestID("r-3");
    world.config().setAppDataRequested(true);
  }
  world.machine.sim.runFor(1000);
  EXPECT_THAT(requestsOf(world), ElementsAre("r-1", "r-2", "r-3"));
}

TEST(AppDataRequests, TheScheduleAsksWhenItIsDueAndNoSooner) {
  AppDataWorld world;
  auto thread = std::make_unique<Running>(world, generic(world, true));
  const auto hours = [&](int count) {
    world.machine.sim.runFor(count * int64_t{3600'000});
    return world.messages.size();
  };
  EXPECT_EQ(hours(100), 0U);
  const auto setInterval = [&](const char* seconds) {
    EXPECT_TRUE(world.config().setValue("appdata.schedule.interval", seconds));
  };
  setInterval("36000");
  world.machine.sim.runFor(1000);
  EXPECT_THAT(requestsOf(world), ElementsAre(testing::MatchesRegex("schedule-.+T.+Z")));
  EXPECT_EQ(hours(9), 1U);
  EXPECT_EQ(hours(1), 2U);
  thread.reset();
  world.machine.beginRun();  // a restart does not begin the interval anew
  const Running restarted(world, generic(world, true));
  EXPECT_EQ(hours(9), 2U);
  EXPECT_EQ(hours(2), 3U);
  world.ask("r-1");  // any inventory does
  EXPECT_EQ(hours(9), 4U);
  EXPECT_EQ(hours(2), 5U);
  EXPECT_TRUE(world.config().setValue("appdata.schedule.last", "99999999999999"));
  setInterval("1");  // the clock was set back, and a minute is the least
  world.machine.sim.runFor(30000);
  EXPECT_EQ(hours(1), 6U + 60U);
  setInterval("0");
  EXPECT_EQ(hours(10), 6U + 60U);
}

TEST(AppDataRequests, WithoutAServerTheResultStaysUntilItIsReleased) {
  AppDataWorld world("", "2");
  world.ask("local-1");
  EXPECT_EQ(world.requests().stage(world.kept()), Stage::waiting);
  world.serve(false);
  EXPECT_EQ(world.requests().stage(world.kept()), Stage::none);
  EXPECT_THAT(world.messages, SizeIs(0));
  EXPECT_EQ(world.config().getApplicationsChecksum(), STRING()) << "nobody has it yet";
  const std::vector<std::string> result = {"delivery.state", "inventory.zip"};
  EXPECT_EQ(world.folder(), result);
  world.machine.beginRun();
  world.serve(false);
  EXPECT_EQ(world.folder(), result);
  world.inventory.xml = "<other/>";
  world.ask("local-2");
  world.serve(false);
  EXPECT_EQ(
      ReceivedData::entry(world.machine.fake.files.content(std::string(kFolder) + "inventory.zip"),
                          "inventory.xml"),
      "<other/>");
  EXPECT_TRUE(releaseDelivery(world.machine.fake.files, world.kept(), world.requests()));
  EXPECT_THAT(world.folder(), SizeIs(0));
  EXPECT_EQ(world.config().getApplicationsChecksum(), STRING("aa"));
  EXPECT_FALSE(releaseDelivery(world.machine.fake.files, world.kept(), world.requests()));
  world.ask("local-3");
  world.serve(false);
  EXPECT_EQ(world.folder(), std::vector<std::string>{"delivery.state"}) << "unchanged";
}

TEST(AppDataRequests, OneThreadCollectsAndTheStateOfDiscoverySaysWhetherItCan) {
  AppDataWorld world("appdata.schedule.interval=60\n", "2");
  UpdateSettings& values = world.settings().updates;
  {
    const Running schedule(world, generic(world, false, /*serves=*/false));
    world.machine.sim.runFor(1000);
    EXPECT_TRUE(values.isAppDataRequested()) << "asked, and left to the other thread";
    EXPECT_EQ(world.inventory.collections, 0);
    EXPECT_FALSE(values.isLocalAppDiscoveryOn());
    const Running thread(world,
                         std::make_unique<AppDataProcessingThread>(world.parts(/*server=*/false)));
    world.machine.sim.runFor(1000);
    EXPECT_EQ(world.inventory.collections, 1);
    EXPECT_TRUE(values.isLocalAppDiscoveryOn());
    world.inventory.result = {.error = "no"};
    world.machine.sim.runFor(60000);
    EXPECT_FALSE(values.isLocalAppDiscoveryOn()) << "the last one brought nothing";
    world.inventory.result = {.written = true, .complete = true};
    world.machine.sim.runFor(60000);
    EXPECT_TRUE(values.isLocalAppDiscoveryOn());
    values.setAppDataConfigFile({});
    world.machine.sim.runFor(1);
    EXPECT_FALSE(values.isLocalAppDiscoveryOn()) << "no definition";
    values.setAppDataConfigV2File("two.xml");
    world.machine.sim.runFor(1);
    EXPECT_TRUE(values.isLocalAppDiscoveryOn());
  }
  EXPECT_FALSE(values.isLocalAppDiscoveryOn()) << "no thread";
  EXPECT_FALSE(values.isCloudAppDiscoveryOn());
  AppDataParts cloud = world.parts(false);
  cloud.cloud = true;
  const Running thread(world, std::make_unique<GenericAppDataProcessingThread>(cloud, true));
  EXPECT_TRUE(values.isCloudAppDiscoveryOn());
}

}  // namespace
}  // namespace korvane::tests
