#include <gtest/gtest.h>

#include "archive/zip_archive.h"
#include "archive/zip_file_writer.h"
#include "bulk/bulk_state.h"
#include "bulk/log_names.h"
#include "platform/fake/fake_platform.h"
#include "platform/fake/faulty_files.h"

namespace korvane::bulk {
namespace {

TEST(BulkNames, ShapesPatternsAndEntries) {
  for (const auto& [name, shape] : std::initializer_list<std::pair<const char*, const char*>>{
           {"driver.log", "driver.log"},
           {"driver-20261122101530123.log", "driver.log"},
           {"driver_7.log", "driver.log"},
           {"KAVEvent3a7.csv", "KAVEvent#a#.csv"},
           {"events-2026-3.csv", "events-#.csv"},
           {"7", "#"},
           {"-7", "-#"},
           {".log7", ".log#"}})
    EXPECT_EQ(shapeOf(name), shape) << name;
  EXPECT_EQ(nextName("driver-7.log", 1767225600123), "driver-20260101000000123.log");
  EXPECT_EQ(shapeOf(nextName("driver.log", 0)), "driver.log");
  for (const char* yes : {"a.log", "a", "a*", "*", "?.l?g", "*.log", "a*.*g", "**"})
    EXPECT_EQ(matches(yes, "a.log"), std::string(yes) != "a") << yes;
  EXPECT_FALSE(matches("*.logs", "a.log"));
  EXPECT_TRUE(matches("*ab*ab", "abxabab"));
  EXPECT_EQ(nameOfSent("rt.csv.sent"), "rt.csv");
  EXPECT_EQ(nameOfSent("rt.csv.sent.12"), "rt.csv");
  for (const char* not_one : {"rt.csv", ".sent", "rt.sent.x", "rt.sent."})
    EXPECT_EQ(nameOfSent(not_one), "") << not_one;
  EXPECT_TRUE(isOwnLog("korvane-agent-20261122090000000-1.log"));
  for (const char* other : {"korvane-agent-2026112209000000-1.log", "korvane-agent-1.log",
                            "korvane-agent-20261122090000000-.log"})
    EXPECT_FALSE(isOwnLog(other)) << other;
  EXPECT_EQ(entriesOf(" /a/*.log ;; b c/d.log;"),
            (std::vector<std::string>{"/a/*.log", "b c/d.log"}));
  EXPECT_EQ(entryFault("/var/log/app*.log"), "");
  for (const char* bad : {"/a/*/b.log", "/a/b,c", "/a/b=c", "/a/", "/a/\"b\""})
    EXPECT_NE(entryFault(bad), "") << bad;
}

Part somePart(int number) {
  return {entryName(Kind::ids, static_cast<size_t>(number), "ev 1.csv"),
          Kind::ids,
          "0123456789ab",
          5,
          9,
          12,
          -1,
          number % 2 ? std::string(64, 'a') : "",
          "/srv/ev 1.csv"};
}

TEST(BulkManifest, IsReadBackWholeOrNotAtAll) {
  const Manifest manifest{"bulk-20261122101530123-0k3v9xq2m7ab.zip", {somePart(1), somePart(12)}};
  const std::string text = manifestText(manifest);
  Manifest out;
  ASSERT_TRUE(parseManifest(text, out));
  EXPECT_EQ(out, manifest);
  EXPECT_EQ(out.parts[0].entry, "ids/01-ev_1.csv");
  EXPECT_EQ(entryName(Kind::driver, 3, "x."), "driver/03-x_");
  for (size_t end = 0; end < text.size(); ++end)
    EXPECT_FALSE(parseManifest(text.substr(0, end), out));
  const std::pair<const char*, const char*> changes[] = {
      {"bulk 1", "bulk 2"},        {"bundle=bulk-2", "bundle=bulk-x"},
      {"end=2", "end=02"},         {"end=2", "end=3"},
      {"end=2\n", "end=2\nx=1\n"}, {" 5 9 ", " 9 9 "},
      {" 5 9 12", " 5 13 12"},     {" 5 9 ", " 05 9 "},
      {" 5 9 ", " -5 9 "},         {" 5 9 ", "  5 9 "},
      {" ids ", " hids "},         {"ids/01-", "agent/01-"},
      {"ids/01-", "ids/1-"},       {"ids/01-", "../01-"},
      {"ids/12-", "ids/01-"},      {"aaaa /", "aaaA /"},
      {"-1 - /", "-0 - /"},        {"/srv/ev", "/srv/\x01v"},
      {"/srv/ev", "/srv/\xffv"}};
  for (const auto& [from, to] : changes) {
    std::string changed = text;
    const size_t at = changed.find(from);
    ASSERT_NE(at, std::string::npos) << from;
    changed.replace(at, std::string_view(from).size(), to);
    EXPECT_FALSE(parseManifest(changed, out)) << changed;
  }
  EXPECT_EQ(out, manifest);
  EXPECT_FALSE(parseManifest(manifestText({manifest.bundle, {}}), out));
}

TEST(BulkState, IsReadBackWholeOrNotAtAll) {
  State state;
  for (const bool logs : {false, true}) {
    for (const bool bundle : {false, true}) {
      state.logs.clear();
      state.bundle.reset();
      if (logs)
        state.logs = {{Kind::agent, "aaaaaaaaaaaa", 7, 0, 12, -1, 12, "0123456789abcdef", "/a b"},
                      {Kind::external, "bbbbbbbbbbbb", 8, 12, 12, 5, 0, "0123456789abcdef", "/c"}};
      if (bundle)
        state.bundle = {
            "bulk-20261122101530123-0k3v9xq2m7ab.zip", 77, std::string(64, '0'), {somePart(1)}};
      state.sentBytes = ~uint64_t{0};
      std::string text = stateText(state);
      State out;
      ASSERT_TRUE(parseState(text, out)) << text;
      EXPECT_EQ(out, state);
      for (size_t i = 0; i < text.size(); ++i) {
        EXPECT_FALSE(parseState(text.substr(0, i), out));
        text[i] = static_cast<char>(text[i] ^ 1);
        EXPECT_FALSE(parseState(text, out)) << i;
        text[i] = static_cast<char>(text[i] ^ 1);
      }
    }
  }
}

TEST(ZipFileWriter, WritesWhatIsReadBackAndTellsTheFilesErrors) {
  platform::FakePlatform fake;
  platform::FaultyFiles files(fake.files);
  const auto write = [&]() -> int {
    std::unique_ptr<platform::File> file;
    if (const int error = files.open("/z.zip", platform::OpenMode::create, file)) return error;
    archive::ZipFileWriter zip(*file);
    for (const char* name : {"a/1", "a/2"}) {
      if (const int error = zip.begin(name, 1767225661999)) return error;
      for (int piece = 0; piece < 40; ++piece)
        if (const int error = zip.add(std::string(5000, static_cast<char>('a' + piece % 7))))
          return error;
      if (const int error = zip.end()) return error;
    }
    return zip.finish();
  };
  ASSERT_EQ(write(), 0);
  const std::string bytes = fake.files.content("/z.zip");
  archive::ZipArchive zip("z.zip", bytes);
  archive::Refusal refusal;
  ASSERT_TRUE(zip.open(refusal) && zip.verify(refusal)) << refusal.text();
  ASSERT_EQ(zip.entries().size(), 2u);
  EXPECT_EQ(zip.entries()[1].size, 200'000u);
  // 2026-01-01 00:01:00, as the format packs it.
  EXPECT_EQ(bytes.substr(10, 4), std::string("\x20\x00\x21\x5c", 4));
  const int writes = files.count(platform::FileOperation::write);
  for (int nth = 1; nth <= writes; ++nth) {
    files.heal();
    files.failNth(platform::FileOperation::write, nth, ENOSPC);
    EXPECT_EQ(write(), ENOSPC) << nth;
  }
}

}  // namespace
}  // namespace korvane::bulk
