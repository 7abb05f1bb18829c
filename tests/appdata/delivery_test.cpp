// From a request to the last piece, and what the answers of the server do to it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "discovery/delivery_state.h"
#include "platform/fake/faulty_files.h"
#include "tests/appdata/appdata_world.h"

namespace korvane::tests {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Asked = AppDataRequests::Asked;

std::vector<int64_t> pausesOf(const AppDataWorld& world) {
  std::vector<int64_t> pauses;
  for (size_t i = 1; i < world.messages.size(); ++i)
    pauses.push_back(world.messages[i].at - world.messages[i - 1].at);
  return pauses;
}

TEST(ApplicationData, ComesInPiecesThatMakeTheInventory) {
  AppDataWorld world("appdata.senddata.interval=7\n");
  world.inventory.xml = noise(2 * kMib + 4711);
  world.inventory.shortcuts = "a shortcut\n";
  EXPECT_EQ(world.ask("r-1"), Asked::begun);
  EXPECT_THAT(world.machine.ini(), HasSubstr("appdata.request.id=r-1"));
  world.serve();
  EXPECT_EQ(world.inventory.definition, STRING("/opt/korvane/IPS/discovery.xml"));
  ASSERT_THAT(world.messages, SizeIs(3));
  EXPECT_THAT(
      world.messages[0].names,
      ElementsAre("result.type", "application.requestID", "application.request.complete",
                  "application.data.outcome", "application.data.size", "application.data.offset",
                  "application.data.sha256", "application.data.rows", "application.data.skipped",
                  "application.data.complete", "application.data.applications.checksum",
                  "application.data.files.checksum"));
  size_t offset = 0;
  for (const auto& message : world.messages) {
    const bool last = &message == &world.messages.back();
    EXPECT_EQ(message.of("application.request.complete"), last ? "true" : "false");
    EXPECT_EQ(message.of("application.data.offset"), std::to_string(offset));
    EXPECT_EQ(message.data.size() == kMib, !last);
    offset += message.data.size();
  }
  EXPECT_EQ(world.messages[0].of("application.data.rows"), "3");
  EXPECT_THAT(pausesOf(world), ElementsAre(7000, 7000));
  EXPECT_EQ(world.xml(), world.inventory.xml);
  EXPECT_EQ(ReceivedData::entry(ReceivedData::assembled(world.messages, "r-1"), "shortcuts.txt"),
            "a shortcut\n");
  // Nothing of it stays but the checksums.
  EXPECT_THAT(world.folder(), IsEmpty());
  EXPECT_EQ(world.machine.fake.files.content("/opt/korvane/IPS/shortcuts.txt"), "");
  EXPECT_THAT(
      world.machine.ini(),
      testing::AllOf(HasSubstr("appdata.requested=false"), HasSubstr("appdata.request.id=\n"),
                     HasSubstr("applications.checksum=aa\nfiles.checksum=ff")));
}

struct OutcomeCase {
  const char* name;
  std::function<void(AppDataWorld&)> before;
  const char* outcome;
  const char* error;         // what it holds
  const char* applications;  // the stored checksum afterwards
};

TEST(ApplicationData, TellsWhatBecameOfTheCollection) {
  const OutcomeCase cases[] = {
      {"whole", [](AppDataWorld&) {}, "data", "", "aa"},
      {"unchanged",
       [](AppDataWorld& world) {
         world.config().setApplicationsChecksum("aa");
         world.config().setFilesChecksum("ff");
       },
       "unchanged", "", "aa"},
      {"other files", [](AppDataWorld& world) { world.config().setApplicationsChecksum("aa"); },
       "data", "", "aa"},
      {"nothing to compare",
       [](AppDataWorld& world) {
         world.inventory.result.applicationsChecksum = world.inventory.result.filesChecksum = "";
       },
       "data", "", ""},
      {"cut short by a limit",
       [](AppDataWorld& world) {
         world.config().setApplicationsChecksum("aa");
         world.config().setFilesChecksum("ff");
         world.inventory.result.complete = false;
       },
       "data", "", "aa"},
      {"a newer definition refused",
       [](AppDataWorld& world) { world.inventory.result.error = "d.xml: line 3, column 7: no"; },
       "data", "d.xml: line 3, column 7: no", "aa"},
      {"a refused definition",
       [](AppDataWorld& world) {
         world.inventory.result = {.error = "d.xml: line 3,\ncolumn 7: no"};
         world.config().setApplicationsChecksum("kept");
       },
       "error", "d.xml: line 3, column 7: no", "kept"},
      {"no definition", [](AppDataWorld& world) { world.config().setAppDataConfigFile({}); },
       "error", "there is no discovery definition", ""},
      {"a folder that cannot be made",
       [](AppDataWorld& world) { world.machine.fake.files.put("/opt/korvane/IPS/appdata", "x"); },
       "error", "folder", ""},
  };
  for (const OutcomeCase& row : cases) {
    SCOPED_TRACE(row.name);
    AppDataWorld world;
    row.before(world);
    world.ask("r-1");
    world.serve();
    ASSERT_THAT(world.messages, SizeIs(1));
    const ReceivedData::Message& message = world.messages[0];
    EXPECT_EQ(message.of("application.data.outcome"), row.outcome);
    EXPECT_EQ(message.of("application.request.complete"), "true");
    EXPECT_THAT(message.of("application.data.error"), HasSubstr(row.error));
    EXPECT_EQ(message.data.empty(), row.outcome != std::string("data"));
    EXPECT_EQ(
        message.of("application.data.complete"),
        message.data.empty() ? "" : STRING::fromBool(world.inventory.result.complete).toUtf8());
    EXPECT_EQ(world.config().getApplicationsChecksum(), STRING(row.applications));
    EXPECT_FALSE(world.config().isAppDataRequested());
    EXPECT_TRUE(world.folder().empty() || row.name == std::string("a folder that cannot be made"));
  }
}

struct AnswerCase {
  const char* name;
  Answer answer;
  size_t messages;  // until the request is ended, with two retries
  bool registered;
};

TEST(ApplicationData, IsRepeatedUntilTheServerTakesItOrGivenUp) {
  const AnswerCase cases[] = {
      {"not now", Answer::error(200), 3, true},
      {"database error", Answer::error(300), 3, true},
      {"bad policy", Answer::error(301), 3, true},
      {"dropped", Answer::error(302), 1, true},
      {"unknown agent", Answer::error(400), 1, false},
      {"rejected", Answer::error(600), 1, true},
      {"another code", Answer::error(700), 3, true},
      {"not found", Answer::http(404), 3, true},
      {"unavailable", Answer::http(503), 3, true},
      {"no connection", Answer::failure(7), 3, true},
      {"a cut answer", {0, 200, "", "Data-Format=text/pl", false}, 3, true},
  };
  for (const AnswerCase& row : cases) {
    for (const bool passes : {false, true}) {
      SCOPED_TRACE(std::string(row.name) + (passes ? ", once" : ", always"));
      AppDataWorld world("appdata.max.retries=2\nappdata.retry.interval=30\n");
      world.inventory.xml = noise(kMib + 1000);
      world.config().setApplicationsChecksum("before");
      size_t answered = 0;
      // The second piece of two.
      world.answer = [&](const ReceivedData::Message& message) {
        const bool hit = message.of("application.data.offset") != "0";
        return hit && !(passes && answered++ > 0) ? row.answer : Answer();
      };
      world.ask("r-1");
      world.serve();
      const bool delivered = passes && row.messages > 1;
      EXPECT_EQ(world.messages.size(),
                1 + (passes ? std::min<size_t>(row.messages, 2) : row.messages));
      const auto pauses = pausesOf(world);
      for (size_t i = 1; i < pauses.size(); ++i) EXPECT_EQ(pauses[i], 30000);
      EXPECT_EQ(world.xml() == world.inventory.xml, true) << "each message is the whole piece";
      EXPECT_EQ(world.config().registered(), row.registered);
      EXPECT_EQ(world.config().getApplicationsChecksum(), STRING(!row.registered ? ""
                                                                 : delivered     ? "aa"
                                                                                 : "before"));
      EXPECT_FALSE(world.config().isAppDataRequested());
      EXPECT_EQ(world.machine.countLines(",10714,"), delivered ? 0U : 1U);
      EXPECT_THAT(world.folder(), IsEmpty());
    }
  }
}

TEST(ApplicationData, EachPieceHasItsOwnRetries) {
  AppDataWorld world("appdata.max.retries=2\nappdata.senddata.interval=0\n");
  world.inventory.xml = noise(2 * kMib + 5);
  std::map<std::string, int> tries;
  world.answer = [&](const ReceivedData::Message& message) {
    return ++tries[message.of("application.data.offset")] <= 2 ? Answer::failure(7) : Answer();
  };
  world.ask("r-1");
  world.serve();
  EXPECT_EQ(world.xml(), world.inventory.xml);
  EXPECT_THAT(world.messages, SizeIs(9));
  EXPECT_EQ(world.config().getApplicationsChecksum(), STRING("aa"));
}

TEST(ApplicationData, BoundsItsSettings) {
  AppDataWorld world(
      "appdata.max.retries=-5\nappdata.retry.interval=-5\nappdata.senddata.interval=-1\n");
  world.config().setAppDataMaxPayload(-3);
  world.inventory.xml = noise(2 * kMib + 5);
  world.ask("r-1");
  world.serve();
  EXPECT_THAT(pausesOf(world), ElementsAre(0, 0));
  world.messages.clear();
  world.answer = [](const auto&) { return Answer::failure(7); };
  world.config().setAppDataMaxPayload(1000);
  world.config().setFilesChecksum({});
  world.inventory.xml = noise(17 * kMib);
  world.ask("r-2");
  world.serve();
  ASSERT_THAT(world.messages, SizeIs(1));
  EXPECT_EQ(world.messages[0].data.size(), 16 * kMib);
}

// A stop at any instant of the work ends it at once, and the next start goes on where it was.
TEST(ApplicationData, GoesOnAfterAStopWithTheSamePieces) {
  struct StopCase {
    const char* name;
    Answer answer;
    int64_t stopAtMs;
    int collections;
    size_t messages;  // until the stop
    const char* retries = "3";
  };
  const StopCase cases[] = {
      {"while collecting", Answer(), 15000, 2, 0},
      {"in a transfer", Answer::hanging(), 25000, 1, 1, "0"},
      {"before a retry", Answer::failure(7), 25000, 1, 1},
      {"between pieces", Answer(), 25000, 1, 1},
  };
  for (const StopCase& row : cases) {
    SCOPED_TRACE(row.name);
    AppDataWorld world("appdata.senddata.interval=600\nappdata.retry.interval=600\n");
    world.inventory.xml = noise(kMib + 1000);
    world.inventory.takesMs = 20000;
    world.config().setAppDataMaxRetries(STRING(row.retries).toInt());
    world.answer = [&](const auto&) { return row.answer; };
    world.ask("r-1");
    int64_t ended = 0;
    {
      const auto thread = world.machine.sim.createThread(0, [&] {
        AppDataWorker(world.parts(), shutdownToken()).run(true);
        ended = world.machine.now();
      });
      world.machine.sim.runFor(row.stopAtMs);
      EXPECT_EQ(ended, 0);
      const int64_t stopped = world.machine.now();
      shutdownToken().request();
      thread->join(60000);
      EXPECT_LE(ended - stopped, 10);
    }
    EXPECT_THAT(world.messages, SizeIs(row.messages));
    EXPECT_TRUE(world.config().isAppDataRequested());
    EXPECT_EQ(world.machine.countLines(",10714,"), 0U);
    world.machine.beginRun();
    world.answer = nullptr;
    world.serve();
    EXPECT_EQ(world.inventory.collections, row.collections);
    EXPECT_EQ(world.xml(), world.inventory.xml);
    EXPECT_FALSE(world.config().isAppDataRequested());
  }
}

TEST(ApplicationData, AnArchiveThatCannotBeWrittenOrReadIsAnError) {
  using platform::FileOperation;
  struct DiskCase {
    FileOperation operation;
    const char* path;
    const char* error;
  };
  for (const DiskCase& row : {DiskCase{FileOperation::write, "inventory.zip", "written"},
                              {FileOperation::flush, "inventory.zip", "written"},
                              {FileOperation::open, "inventory.xml", "No space left"},
                              {FileOperation::replace, "inventory.zip", "read"}}) {
    AppDataWorld world;
    platform::FaultyFiles files(world.machine.fake.files);
    platform::Platform faulty = platform::withFiles(world.machine.fake.platform(), files);
    world.machine.beginRun(faulty);
    files.failAll(row.operation, 28, row.path);
    world.ask("r-1");
    world.serve();
    ASSERT_THAT(world.messages, SizeIs(1)) << row.error;
    EXPECT_EQ(world.messages[0].of("application.data.outcome"), "error");
    EXPECT_THAT(world.messages[0].of("application.data.error"), HasSubstr(row.error));
    EXPECT_THAT(world.folder(), IsEmpty());
  }
}

// Without a place for its state a delivery goes on all the same.
TEST(ApplicationData, IsDeliveredThoughItsStateCannotBeWritten) {
  AppDataWorld world("appdata.senddata.interval=0\n");
  platform::FaultyFiles files(world.machine.fake.files);
  platform::Platform faulty = platform::withFiles(world.machine.fake.platform(), files);
  world.machine.beginRun(faulty);
  files.failAll(platform::FileOperation::write, 28, "delivery.state");
  world.inventory.xml = noise(2 * kMib);
  world.ask("r-1");
  world.serve();
  EXPECT_EQ(world.xml(), world.inventory.xml);
  EXPECT_THAT(world.folder(), IsEmpty());
}

TEST(DeliveryState, IsReadWholeOrNotAtAll) {
  DeliveryState state{.request = "r \u00e4=1",
                      .outcome = DeliveryState::Outcome::data,
                      .error = "a=b",
                      .complete = true,
                      .rows = 5,
                      .skipped = 2,
                      .applicationsChecksum = "aa",
                      .filesChecksum = "",
                      .size = uint64_t{1} << 40,
                      .sha256 = "77",
                      .sent = 7,
                      .delivered = false};
  const std::string text = deliveryStateText(state);
  DeliveryState read;
  ASSERT_TRUE(parseDeliveryState(text, read));
  EXPECT_EQ(read, state);
  for (size_t cut = 0; cut < text.size(); ++cut) {
    EXPECT_FALSE(parseDeliveryState(text.substr(0, cut), read)) << cut;
    std::string changed = text;
    changed[cut] ^= 1;
    EXPECT_FALSE(parseDeliveryState(changed, read)) << cut;
  }
  EXPECT_FALSE(parseDeliveryState(text + "\n", read));
  state.sent = state.size + 1;
  EXPECT_FALSE(parseDeliveryState(deliveryStateText(state), read));
  state.sent = state.size = 0;
  EXPECT_FALSE(parseDeliveryState(deliveryStateText(state), read)) << "data of no size";
}

}  // namespace
}  // namespace korvane::tests
