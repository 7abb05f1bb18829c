// One inventory of a machine that the test makes up: its rows, its bounds, its pace, and what becomes of the
// result when something fails.
#include "discovery/inventory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>

#include "discovery/pace.h"
#include "discovery/xml_reader.h"
#include "platform/fake/fake_platform.h"
#include "platform/fake/fake_survey.h"
#include "platform/fake/faulty_files.h"
#include "platform/fake/forwarding.h"
#include "platform/native.h"
#include "tests/support/temp_directory.h"

namespace korvane {
namespace {

using platform::FileOperation;

constexpr char kOutput[] = "/agent/inventory.xml";
constexpr char kShortcuts[] = "/agent/shortcuts.txt";

// A clock that moves by some milliseconds whenever it is asked, as work would, and a look at each step.
class WorkingClock final : public platform::ForwardingClock {
 public:
  explicit WorkingClock(platform::ManualClock& to) : ForwardingClock(to), _manual(to) {}
  int64_t monotonicMs() override {
    if (onStep) onStep(++steps);
    _manual.advance(msOfStep);
    return ForwardingClock::monotonicMs();
  }
  std::function<void(int)> onStep;
  int steps = 0;
  int64_t msOfStep = 0;

 private:
  platform::ManualClock& _manual;
};

class InventoryTest : public testing::Test {
 protected:
  platform::FakePlatform fake;
  platform::CurrentPlatform current{fake.platform()};
  platform::FaultyFiles files{fake.files};
  platform::FakeSurvey survey;
  WorkingClock clock{fake.clock};
  StopToken stop;
  Inventory inventory{clock, files, survey};

  void SetUp() override {
    define("<applications/><services/><processes/><ports/><shortcuts/><files root='/data'/>");
    survey.installed = {{"b", "1", "", "", "", ""}, {"a", "2", "V & \"Co\" <x>", "amd64", "", ""}};
    survey.offered = {{"cron.service", "", "enabled", "root", "/usr/sbin/cron -f"}};
    survey.running = {{7, 1, "sh", "/bin/sh", "sh -c\tx"}};
    survey.open = {{"tcp", "::1", 22, 0, ""}};
    survey.links = {{"/x/a\tb.desktop", "", "C:\\t", "", ""}};
    survey.files = {
        {"/data/one.txt", "1"}, {"/data/sub/two.dll", "22"}, {"/data/sub/deep/three", "333"}};
    fake.files.put("/agent/agent.ini", "");
  }
  void define(const std::string& parts, const std::string& format = "2") {
    fake.files.put("/agent/d" + format + ".xml",
                   "<discovery version='" + format + "'>" + parts + "</discovery>");
  }
  InventoryOutcome collect(const STRING& first = {}, const STRING& second = "/agent/d2.xml") {
    return inventory.collect(stop, {first, second, kOutput, kShortcuts});
  }
  std::string output() { return fake.files.content(kOutput); }
  bool has(const std::string& text) { return output().find(text) != std::string::npos; }
  // No half-written file stays, whatever happened.
  void TearDown() override {
    for (const std::string& path : fake.files.paths())
      EXPECT_EQ(path.find(".new-"), std::string::npos) << path;
  }
};

TEST_F(InventoryTest, eachRowIsWrittenAsThePageSays) {
  const InventoryOutcome got = collect();
  EXPECT_TRUE(got.written && got.complete && !got.stopped && got.error.empty());
  EXPECT_EQ(got.rows, 9u);
  EXPECT_EQ(got.skipped, 0u);
  EXPECT_EQ(
      output(),
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<inventory version=\"1\" collected=\"2026-01-01T00:00:00.000Z\">\n"
      "<application name=\"b\" version=\"1\"/>\n"
      "<application name=\"a\" version=\"2\" publisher=\"V &amp; &quot;Co&quot; &lt;x&gt;\" "
      "architecture=\"amd64\"/>\n"
      "<service name=\"cron.service\" start=\"enabled\" account=\"root\" program=\"/usr/sbin/cron "
      "-f\"/>\n"
      "<process id=\"7\" parent=\"1\" name=\"sh\" image=\"/bin/sh\" commandLine=\"sh -c&#9;x\"/>\n"
      "<port protocol=\"tcp\" address=\"::1\" port=\"22\"/>\n"
      "<shortcut path=\"/x/a&#9;b.desktop\" target=\"C:\\t\"/>\n"
      "<file path=\"/data/one.txt\" size=\"1\" modified=\"1970-01-01T00:00:01.000Z\" "
      "sha256=\"6b86b273ff34fce1"
      "9d6b804eff5a3f5747ada4eaa22f1d49c01e52ddb7875b4b\"/>\n"
      "<file path=\"/data/sub/deep/three\" size=\"3\" modified=\"1970-01-01T00:00:01.000Z\" "
      "sha256=\"556d7dc3a1"
      "15356350f1f9910b1af1ab0e312d4b3e4fc788d2da63668f36d017\"/>\n"
      "<file path=\"/data/sub/two.dll\" size=\"2\" modified=\"1970-01-01T00:00:01.000Z\" "
      "version=\"1.2.3.4\" "
      "sha256=\"785f3ec7eb32f30b90cd0fcf3657d388b5ff4297f2f9716ff66e9b69c05ddd09\"/>\n"
      "<result complete=\"true\" rows=\"9\" skipped=\"0\" applicationsChecksum=\"" +
          got.applicationsChecksum + "\" filesChecksum=\"" + got.filesChecksum +
          "\"/>\n</inventory>\n");
  EXPECT_EQ(fake.files.content(kShortcuts), "/x/a\\tb.desktop\tC:\\\\t\t\t\n");
}

TEST_F(InventoryTest, whatIsNoTextBecomesText) {
  survey.installed = {
      {std::string("a\x01\xff\xEF\xBF\xBF z"), std::string(40000, 'v'), "", "", "", ""}};
  survey.files = {{"/data/\xff", "1"}};
  EXPECT_TRUE(collect().complete);
  EXPECT_TRUE(has("name=\"a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD z\"")) << output();
  EXPECT_TRUE(has("\"" + std::string(32768, 'v') + "\""));
  EXPECT_TRUE(has("path=\"/data/\xEF\xBF\xBD\" pathBytes=\"2f646174612fff\""));
}

TEST_F(InventoryTest, checksumsTellAChangeOfWhatCountsAndNothingElse) {
  const InventoryOutcome before = collect();
  EXPECT_EQ(before.applicationsChecksum.size(), 64u);
  const auto differs = [&] {
    const InventoryOutcome now = collect();
    return std::pair(now.applicationsChecksum != before.applicationsChecksum,
                     now.filesChecksum != before.filesChecksum);
  };
  using Both = std::pair<bool, bool>;
  std::swap(survey.installed[0], survey.installed[1]);
  survey.running.clear();
  survey.open.clear();
  fake.clock.advance(5000000);
  EXPECT_EQ(differs(), Both(false, false));
  survey.offered[0].account = "nobody";
  EXPECT_EQ(differs(), Both(true, false));
  survey.offered[0].account = "root";
  survey.installed.push_back(survey.installed[0]);
  EXPECT_EQ(differs(), Both(true, false)) << "one row twice";
  survey.installed.push_back(survey.installed[0]);
  EXPECT_EQ(differs(), Both(true, false)) << "and thrice";
  survey.installed.assign(2, survey.installed[0]);
  const std::string twice = collect().applicationsChecksum;
  survey.installed.assign(2, {"c", "", "", "", "", ""});
  EXPECT_NE(collect().applicationsChecksum, twice) << "two of one and two of another";
  survey.installed = {{"b", "1", "", "", "", ""}, {"a", "2", "V & \"Co\" <x>", "amd64", "", ""}};
  survey.files["/data/one.txt"] = "2";
  EXPECT_EQ(differs(), Both(false, true));
  define("<processes/><ports/>");
  const InventoryOutcome none = collect();
  EXPECT_TRUE(none.complete);
  EXPECT_EQ(none.applicationsChecksum + none.filesChecksum, "");
}

TEST_F(InventoryTest, filesAreChosenByPatternDepthSizeAndExclusion) {
  const struct {
    const char *attributes, *inside, *names;
  } table[] = {
      {"", "", "one.txt three two.dll "},
      {"pattern='*.txt;*.dll'", "", "one.txt two.dll "},
      {"depth='0'", "", "one.txt "},
      {"depth='1'", "", "one.txt two.dll "},
      {"minSize='2'", "", "three two.dll "},
      {"maxSize='2'", "", "one.txt two.dll "},
      {"", "<exclude pattern='sub'/>", "one.txt "},
      {"", "<exclude pattern='sub/deep'/>", "one.txt two.dll "},
      {"", "<exclude pattern='*/three'/>", "one.txt two.dll "},
      {"", "<exclude pattern='*.dll'/>", "one.txt three "},
  };
  for (const auto& row : table) {
    define(std::string("<files root='/data' ") + row.attributes + ">" + row.inside + "</files>");
    collect();
    std::string names;
    const std::string text = output();
    for (size_t at = 0; (at = text.find("<file path=\"", at)) != std::string::npos; ++at) {
      const std::string path = text.substr(at + 12, text.find('"', at + 12) - at - 12);
      names += path.substr(path.rfind('/') + 1) + " ";
    }
    EXPECT_EQ(names, row.names) << row.attributes << row.inside;
  }
  define("<files root='/data' hashLimit='1' signer='true' fileVersion='false' pattern='*.dll'/>");
  collect();
  EXPECT_TRUE(has("signer=\"A Vendor\"/>")) << "no SHA-256 and no version";
}

TEST_F(InventoryTest, whatCannotBeReadIsCountedAndNamedUpToABound) {
  survey.unreadable = {{"/data/sub/deep", EACCES}, {"/data/one.txt", EIO}, {"/none", ENOENT}};
  define("<files root='/data'/><files root='/none'/>");
  InventoryOutcome got = collect();
  EXPECT_TRUE(got.complete);
  EXPECT_EQ(got.rows, 1u);
  EXPECT_EQ(got.skipped, 3u);
  EXPECT_TRUE(has("<skip what=\"/data/sub/deep\" reason=\"Permission denied (13)\"/>")) << output();
  survey.files.clear();
  survey.unreadable.clear();
  for (int i = 0; i < 150; ++i) {
    survey.files["/data/" + std::to_string(i)] = "x";
    survey.unreadable["/data/" + std::to_string(i)] = EACCES;
  }
  define("<files root='/data'/>");
  got = collect();
  EXPECT_EQ(got.skipped, 150u);
  const std::string text = output();
  size_t named = 0;
  for (size_t at = 0; (at = text.find("<skip ", at)) != std::string::npos; ++at) ++named;
  EXPECT_EQ(named, 100u);
}

TEST_F(InventoryTest, aLimitEndsItWithoutChecksums) {
  define(
      "<limits rows='9'/><applications/><services/><processes/><ports/><shortcuts/><files "
      "root='/data'/>");
  EXPECT_TRUE(collect().complete) << "as many rows as there are";
  define(
      "<limits rows='8'/><applications/><services/><processes/><ports/><shortcuts/><files "
      "root='/data'/>");
  InventoryOutcome got = collect();
  EXPECT_TRUE(got.written && !got.complete && got.error.empty());
  EXPECT_EQ(got.rows, 8u);
  EXPECT_EQ(got.applicationsChecksum + got.filesChecksum, "");
  EXPECT_TRUE(has("<result complete=\"false\" reason=\"rows\" rows=\"8\" skipped=\"0\"/>"))
      << output();
  define("<limits seconds='1' share='100'/><applications/><files root='/data'/>");
  clock.msOfStep = 300;
  got = collect();
  EXPECT_TRUE(got.written && !got.complete);
  EXPECT_TRUE(has("reason=\"seconds\""));
}

TEST_F(InventoryTest, aRefusedDefinitionLeavesTheOneBeforeInForce) {
  define("<ports");
  InventoryOutcome got = collect();
  EXPECT_FALSE(got.written);
  EXPECT_EQ(got.error.toUtf8().find("/agent/d2.xml: line 1, column "), 0u) << got.error.toUtf8();
  EXPECT_TRUE(output().empty());
  define("<ports/>");
  EXPECT_TRUE(collect().complete);
  define("<services/>", "1");
  define("<services>");
  got = collect("/agent/d1.xml");
  EXPECT_TRUE(got.written && got.complete && !got.error.empty());
  EXPECT_TRUE(has("<port ") && !has("<service ")) << "neither part of the new ones is used";
  define("");
  EXPECT_TRUE(collect("/agent/d1.xml").error.empty());
  EXPECT_TRUE(has("<service "));
  fake.files.put("/agent/d2.xml", std::string(256 * 1024 + 1, ' '));
  EXPECT_EQ(collect().error, STRING("/agent/d2.xml: larger than 262144 bytes"));
  EXPECT_EQ(collect("/agent/none.xml", "").error.toUtf8().find("/agent/none.xml: cannot be read: "),
            0u);
  EXPECT_EQ(collect("", "").error, STRING("no discovery definition is set"));
}

TEST_F(InventoryTest, aResultThatCannotBeWrittenLeavesTheFormerOne) {
  collect();
  const std::string former = output(), shortcuts = fake.files.content(kShortcuts);
  survey.installed.clear();
  survey.links.clear();
  for (const auto operation :
       {FileOperation::open, FileOperation::write, FileOperation::flush, FileOperation::replace}) {
    for (const char* part : {"inventory.xml", "shortcuts.txt"}) {
      if (operation == FileOperation::write && part[0] == 's') continue;  // it is empty
      files.failAll(operation, ENOSPC, part);
      const InventoryOutcome got = collect();
      EXPECT_FALSE(got.written || got.complete);
      EXPECT_EQ(got.error.toUtf8(), std::string("/agent/") + part +
                                        ": cannot be written: No space left on device (28)");
      EXPECT_EQ(got.applicationsChecksum, "");
      EXPECT_EQ(output(), former);
      files.heal();
    }
  }
  // What a crash left goes with the next collection, and nothing else does.
  for (const char* left :
       {"inventory.xml.new-0123456789ab", "shortcuts.txt.new-0123456789ab", "mine.xml.new-0"})
    fake.files.put(std::string("/agent/") + left, "half");
  EXPECT_TRUE(collect().written);
  EXPECT_NE(fake.files.content(kShortcuts), shortcuts);
  EXPECT_EQ(fake.files.remove("/agent/mine.xml.new-0"), 0);
}

// At every step of a collection, and from within its rests.
TEST_F(InventoryTest, aStopEndsItAtAnyStepAndLeavesTheFormerResult) {
  collect();
  const std::string former = output();
  survey.files["/data/large"] = std::string(1 << 20, 'x');
  int last = 0;
  for (int at = 1; at <= last || last == 0; ++at) {
    stop.reset();
    clock.steps = 0;
    clock.onStep = [&](int step) {
      if (step == at) stop.request();
    };
    const InventoryOutcome got = collect();
    if (!got.stopped) {
      EXPECT_GT(at, 25) << "pieces of a large file are steps, too";
      EXPECT_TRUE(got.complete);
      return;
    }
    EXPECT_FALSE(got.written || got.complete || !got.error.empty());
    EXPECT_EQ(output(), former);
    EXPECT_LE(clock.steps, at + 2) << "nothing goes on after a stop";
  }
}

// The system that the test runs on, collected on a stack as large as the header asks for.
class CountingRows final : public XmlHandler {
 public:
  std::string startElement(const std::string& name, const XmlAttributes& attributes) override {
    ++rows[name];
    last = attributes;
    return {};
  }
  std::string endElement() override { return {}; }
  std::string text(const std::string&) override { return {}; }
  std::map<std::string, uint64_t> rows;
  XmlAttributes last;
};

TEST(NativeInventory, ofThisMachineIsWholeAndWellFormed) {
  const auto native = platform::makeNativePlatform({});
  platform::Platform& system = native->platform();
  const platform::CurrentPlatform current(system);
  const auto survey = platform::makeNativeSurvey();
  const tests::TempDirectory directory;
  const std::string root = directory.path();
  const auto put = [&](const std::string& name, const std::string& text) {
    std::ofstream(tests::fsPath(root + "/" + name), std::ios::binary) << text;
  };
  std::filesystem::create_directory(tests::fsPath(root + "/files"));
  for (int i = 0; i < 20; ++i)
    put("files/" + std::to_string(i), std::string(static_cast<size_t>(i) * 10000, 'x'));
  put("d.xml",
      "<discovery version='2'><limits "
      "share='100'/><applications/><services/><processes/><ports/><shortcuts/><files root='" +
          root + "/files'/></discovery>");
  Inventory inventory(system.clock, system.files, *survey);
  StopToken stop;
  InventoryOutcome got;
  const auto thread = system.threading.createThread(Inventory::kStackBytes, [&] {
    got = inventory.collect(stop, "", root + "/d.xml", root + "/out.xml");
  });
  ASSERT_EQ(thread->join(platform::kInfinite), platform::WaitResult::signalled);
  ASSERT_TRUE(got.complete) << got.error.toUtf8();
  std::ifstream file(tests::fsPath(root + "/out.xml"), std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  CountingRows counting;
  EXPECT_EQ(readXml(text, counting), "");
  EXPECT_EQ(counting.rows["file"], 20u);
  EXPECT_GT(counting.rows["process"], 0u);
  uint64_t rows = 0;
  for (const auto& [name, count] : counting.rows)
    if (name != "inventory" && name != "skip" && name != "result") rows += count;
  EXPECT_EQ(rows, got.rows);
  EXPECT_EQ(counting.last.back().second, got.filesChecksum);
}

// Simulated time, in which each step of work takes another part of a millisecond.
class SimulatedWork final : public platform::ForwardingClock {
 public:
  using ForwardingClock::ForwardingClock;
  int64_t monotonicMs() override { return _to.monotonicMs() + (workedUs += 700) / 1000; }
  int64_t workedUs = 0;
};

TEST(InventoryPace, aStepThatHungCountsForFiveSeconds) {
  platform::SimThreading sim(7);
  platform::FakePlatform fake(sim);
  const platform::CurrentPlatform current(fake.platform());
  SimulatedWork clock(sim.clock());
  StopToken stop;
  Pace pace(clock, stop, 10, 86400);
  clock.workedUs += int64_t{600} * 1000000;
  const int64_t before = sim.clock().monotonicMs();
  EXPECT_TRUE(pace.goOn());
  EXPECT_EQ(sim.clock().monotonicMs() - before, 45000);
}

TEST(InventoryPace, itKeepsToItsShareAndARestEndsAtOnce) {
  for (const int share : {1, 10, 50, 100}) {
    platform::SimThreading sim(7);
    platform::FakePlatform fake(sim);
    const platform::CurrentPlatform current(fake.platform());
    fake.files.put("/d.xml", "<discovery version='2'><limits share='" + std::to_string(share) +
                                 "'/><applications/></discovery>");
    platform::FakeSurvey survey;
    survey.installed.resize(5000);
    SimulatedWork clock(sim.clock());
    Inventory inventory(clock, fake.files, survey);
    StopToken stop;
    int64_t before = sim.clock().monotonicMs();
    EXPECT_TRUE(inventory.collect(stop, "", "/d.xml", "/out.xml").complete);
    const int64_t rested = sim.clock().monotonicMs() - before, worked = clock.workedUs / 1000;
    EXPECT_LE(worked * 100, share * (worked + rested) + 25 * 100) << share;
    EXPECT_GE(worked * 110, share * (worked + rested)) << share << ": no slower than it need be";
    if (share == 100) continue;
    before = sim.clock().monotonicMs();
    const auto stopper = sim.createThread(0, [&] {
      sim.runFor(rested / 2);
      stop.request();
    });
    EXPECT_TRUE(inventory.collect(stop, "", "/d.xml", "/out.xml").stopped);
    stopper->join(platform::kInfinite);
    EXPECT_EQ(sim.clock().monotonicMs() - before, rested / 2) << share;
  }
}

}  // namespace
}  // namespace korvane
