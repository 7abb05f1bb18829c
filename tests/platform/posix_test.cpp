// What only the POSIX siblings promise.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>

#include "platform/driver_device.h"
#include "platform/error_codes.h"
#include "platform/fake/manual_clock.h"
#include "platform/fake/recording_files.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "platform/pipes.h"
#include "platform/processes.h"
#include "platform/registry.h"
#include "platform/rights.h"
#include "platform/threading.h"
#include "tests/platform/patience.h"
#include "tests/platform/simulator_stand_in.h"
#include "tests/support/temp_directory.h"
#include "tests/support/watchdog.h"

namespace korvane::platform {
namespace {

constexpr char kDeviceName[] = "\\\\.\\KAVIPS";

class PosixTest : public testing::Test {
 protected:
  tests::TempDirectory directory;
  std::string registryFile = directory.path() + "/machine.reg";
  std::unique_ptr<NativePlatform> native = makeNativePlatform({registryFile, directory.path()});
  Platform& platform = native->platform();

  void write(const std::string& bytes) { std::ofstream(registryFile, std::ios::binary) << bytes; }
  std::string read() {
    std::string bytes;
    readWholeFile(platform.files, registryFile, 1 << 20, bytes);
    return bytes;
  }
};

TEST_F(PosixTest, linksAreFollowedToWhatIsThereAndToWhatIsNot) {
  std::string root;
  ASSERT_EQ(platform.files.resolve(directory.path(), root), 0);
  const std::pair<const char*, std::string> links[] = {
      {"absolute", "/dev/null"}, {"dangling", "/nowhere/x"}, {"up", "../"},
      {"chain", "absolute"},     {"loop", "loop"},           {"here", "."}};
  for (const auto& [name, target] : links)
    ASSERT_EQ(::symlink(target.c_str(), (root + "/" + name).c_str()), 0);
  const std::string above = directoryOf(root);
  const std::pair<const char*, std::string> cases[] = {
      {"chain", "/dev/null"},     {"dangling", "/nowhere/x"},   {"dangling/y", "/nowhere/x/y"},
      {"up/y", above + "/y"},     {"here/here/a", root + "/a"}, {"a/../b/.", root + "/b"},
      {"here/../y", above + "/y"}};
  for (const auto& [name, expected] : cases) {
    std::string out;
    EXPECT_EQ(platform.files.resolve(root + "/" + name, out), 0) << name;
    EXPECT_EQ(out, expected) << name;
  }
  std::string out;
  EXPECT_EQ(platform.files.resolve(root + "/loop/x", out), ELOOP);
}

TEST_F(PosixTest, aChildEndsWithAParentThatIsKilled) {
  const std::string told = directory.path() + "/child";
  std::unique_ptr<Process> parent;
  ASSERT_EQ(platform.processes.start(KORVANE_TEST_CHILD, "parent \"" + told + "\"", parent), kOk);
  const auto pause = platform.threading.createEvent(true, false);
  pid_t child = 0;
  for (int i = 0; i < 3000 && !(std::ifstream(told) >> child); ++i) pause->wait(10);
  ASSERT_GT(child, 0);
  // Who adopts it may leave a zombie.
  const std::string stat = "/proc/" + std::to_string(child) + "/stat";
  const auto runs = [&] {
    std::ifstream file(stat);
    std::string text;
    std::getline(file, text);
    return !text.empty() && text.find(") Z ") == std::string::npos;
  };
  ASSERT_TRUE(runs());
  ASSERT_EQ(::kill(static_cast<pid_t>(parent->id()), SIGKILL), 0);
  for (int i = 0; i < 3000 && runs(); ++i) pause->wait(10);
  EXPECT_FALSE(runs());
}

// What may be unsafe about a path, each spoilt in turn, and what is none the less safe.
TEST_F(PosixTest, whatStrangersMayChangeIsFoundWithItsReason) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root, to give files away";
  namespace fs = std::filesystem;
  constexpr uid_t kStranger = 61234;
  const std::string top = directory.path();
  const auto lay = [&] {
    for (const auto& entry : fs::directory_iterator(top)) fs::remove_all(entry);
    fs::create_directories(top + "/a/b");
    std::ofstream(top + "/a/b/file") << "x";
    fs::create_symlink("b", top + "/a/link");
    fs::create_symlink(top + "/a/link/../b/file", top + "/direct");
  };
  const auto mode = [&](const char* name, mode_t bits) {
    return [=] { EXPECT_EQ(::chmod((top + name).c_str(), bits), 0); };
  };
  const auto give = [&](const char* name, uid_t owner, gid_t group) {
    return [=] { EXPECT_EQ(::lchown((top + name).c_str(), owner, group), 0); };
  };
  const auto groupMay = [&](const char* name, mode_t bits) {
    return [=] { give(name, 0, kStranger)(), mode(name, bits)(); };
  };
  struct Row {
    const char* path;
    std::function<void()> spoil;
    std::string found;
  };
  const Row rows[] = {
      {"/a/b/file", [] {}, ""},
      {"/a/b/file", mode("/a/b/file", 0664), ""},  // root's own group
      {"/a/b/file", mode("/a/b/file", 0646), "/a/b/file is writable by everybody"},
      {"/a/b/file", groupMay("/a/b/file", 0660), "/a/b/file is writable by group 61234"},
      {"/a/b/file", give("/a/b/file", kStranger, 0),
       "/a/b/file belongs to account 61234, its owner"},
      {"/a/b/file", mode("/a", 0777), "/a is writable by everybody"},
      {"/a/b/file", mode("/a", 01777), ""},
      {"/a", mode("/a", 01777), "/a is writable by everybody"},  // as a place for new files
      {"/a/b/file", groupMay("/a", 01775), ""},
      {"/a/b/none", mode("/a/b", 0757), "/a/b is writable by everybody"},
      {"/a/b/none/deeper", [] {}, ""},
      {"/a/link/file", mode("/a/b", 0757), "/a/b is writable by everybody"},
      {"/a/link/file", give("/a/link", kStranger, 0),
       "/a/link belongs to account 61234, its owner"},
      {"/direct", [] {}, ""},
      {"/direct", mode("/a", 0757), "/a is writable by everybody"},
      {"/direct", mode("/a/b/file", 0666), "/a/b/file is writable by everybody"},
      {"/a/../a/./b//file", mode("/a/b", 0757), "/a/b is writable by everybody"},
      {"/loop", [&] { fs::create_symlink("loop", top + "/loop"); }, "/loop cannot be followed"},
  };
  for (const Row& row : rows) {
    lay();
    row.spoil();
    EXPECT_EQ(unsafePart(top + row.path), row.found.empty() ? "" : top + row.found) << row.path;
  }
}

TEST_F(PosixTest, childrenInheritNoDescriptorAndLeaveNoZombie) {
  const int leaked = ::open("/dev/null", O_RDONLY);
  std::unique_ptr<Process> process;
  ASSERT_EQ(platform.processes.start(KORVANE_TEST_CHILD, "descriptors", process), kOk);
  ASSERT_EQ(process->wait(kLongMs), ProcessWait::ended);
  uint32_t code = 0xBAD;
  ASSERT_TRUE(process->exitCode(code));
  EXPECT_EQ(code, 0u);
  ::close(leaked);

  ASSERT_EQ(platform.processes.start(KORVANE_TEST_CHILD, "hang", process), kOk);
  const auto pid = static_cast<pid_t>(process->id());
  EXPECT_EQ(::getpgid(pid), pid);
  ASSERT_EQ(::kill(pid, 0), 0);
  process.reset();
  const auto pause = platform.threading.createEvent(true, false);
  for (int i = 0; i < 3000 && ::kill(pid, 0) == 0; ++i) pause->wait(10);
  EXPECT_NE(::kill(pid, 0), 0) << "nobody took it from the system";
}

TEST_F(PosixTest, whatAKilledServerLeftDoesNotKeepItsName) {
  std::ofstream(directory.path() + "/left.pipe");
  std::unique_ptr<Pipe> server, client;
  EXPECT_EQ(platform.pipes.create("left", PipeAudience::everyone, server), kOk);
  EXPECT_EQ(platform.pipes.open("left", client), kOk);
}

TEST_F(PosixTest, aClientThatNoDescriptorIsLeftForIsWaitedForWithPauses) {
  std::unique_ptr<Pipe> server, client;
  ASSERT_EQ(platform.pipes.create("full", PipeAudience::everyone, server), kOk);
  size_t available = 0;
  const auto lookAndWait = [&] {
    EXPECT_EQ(server->peek(available), kErrorBadPipe);
    server->wait(PipeEvent::readable, 100);
    return platform.clock.monotonicMs();
  };
  // Once before: a sanitizer's first look at a class takes descriptors.
  const int64_t until = lookAndWait() + 300;
  ASSERT_EQ(platform.pipes.open("full", client), kOk);
  rlimit former{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &former), 0);
  const rlimit full{3, former.rlim_max};  // poll(2) itself asks for two
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &full), 0);
  int waits = 1;
  while (lookAndWait() < until) ++waits;
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &former), 0);
  EXPECT_LE(waits, 4);
  EXPECT_EQ(server->peek(available), kOk);
  std::unique_ptr<Pipe> nowhere;
  EXPECT_EQ(makeNativePlatform({registryFile, ""})
                ->platform()
                .pipes.create("x", PipeAudience::everyone, nowhere),
            kErrorPathNotFound);
}

TEST_F(PosixTest, aSignalledChildHasItsSignalsCodeAndTextIsNoProgram) {
  std::unique_ptr<Process> process;
  ASSERT_EQ(platform.processes.start(KORVANE_TEST_CHILD, "hang", process), kOk);
  ::kill(static_cast<pid_t>(process->id()), SIGTERM);
  ASSERT_EQ(process->wait(kLongMs), ProcessWait::ended);
  uint32_t code = 0;
  process->exitCode(code);
  EXPECT_EQ(code, 128u + SIGTERM);

  const std::string text = directory.path() + "/text";
  std::ofstream(text) << "no program";
  EXPECT_EQ(platform.processes.start(text, "", process), kErrorAccessDenied);
  std::filesystem::permissions(text, std::filesystem::perms::owner_all);
  EXPECT_EQ(platform.processes.start(text, "", process), kErrorBadExeFormat);
}

TEST_F(PosixTest, lowestPriorityRaisesTheNiceValueByFive) {
  int nice = -100;
  const int base = ::getpriority(PRIO_PROCESS, 0);
  const auto go = platform.threading.createEvent(true, false);
  const auto thread = platform.threading.createThread(0, [&] {
    go->wait(kLongMs);
    nice = ::getpriority(PRIO_PROCESS, 0);
  });
  ASSERT_TRUE(thread->setPriority(NativePriority::lowest));
  go->set();
  thread->join(kLongMs);
  EXPECT_EQ(nice, std::min(base + 5, 19)) << "19 is the system's most";
  EXPECT_EQ(::getpriority(PRIO_PROCESS, 0), base) << "only that thread's";
}

TEST_F(PosixTest, aRegistryFileThatWasReplacedWithinItsDatesStepIsReadAgain) {
  const auto text = [](const char* value) {
    return std::string("REGEDIT4\n\n[HKEY_LOCAL_MACHINE\\K]\n\"v\"=\"") + value + "\"\n";
  };
  STRING value;
  write(text("1"));
  ASSERT_EQ(platform.registry.readString("K", "v", value), kOk);
  const std::string other = registryFile + ".other";
  std::ofstream(other, std::ios::binary) << text("2");
  std::filesystem::last_write_time(other, std::filesystem::last_write_time(registryFile));
  std::filesystem::rename(other, registryFile);
  ASSERT_EQ(platform.registry.readString("K", "v", value), kOk);
  EXPECT_EQ(value, "2") << "another file of the same size and date";
}

TEST_F(PosixTest, whatMakesOrChangesAFileFollowsNoLink) {
  for (const char* leads : {"/victim", "/absent"}) {
    std::ofstream(directory.path() + "/victim") << "its own";
    const std::string link = directory.path() + "/link";
    std::filesystem::remove(link);
    std::filesystem::create_symlink(directory.path() + leads, link);
    std::unique_ptr<File> file;
    std::unique_ptr<FileLock> lock;
    EXPECT_EQ(platform.files.open(link, OpenMode::create, file), ELOOP);
    EXPECT_EQ(platform.files.open(link, OpenMode::createNew, file), EEXIST);
    EXPECT_EQ(platform.files.open(link, OpenMode::append, file), ELOOP);
    EXPECT_EQ(platform.files.open(link, OpenMode::readWrite, file), ELOOP);
    EXPECT_EQ(platform.files.lock(link, lock), ELOOP);
    EXPECT_EQ(std::filesystem::file_size(directory.path() + "/victim"), 7u);
    EXPECT_FALSE(std::filesystem::exists(directory.path() + "/absent"));
    EXPECT_EQ(writeFileAtomically(platform.files, link, "new"), 0);
    EXPECT_FALSE(std::filesystem::is_symlink(link)) << "the new file has taken its place";
  }
}

TEST_F(PosixTest, filesAreClosedToStrangers) {
  std::unique_ptr<File> file;
  ASSERT_EQ(platform.files.open(directory.path() + "/state", OpenMode::create, file), 0);
  ASSERT_EQ(platform.files.makeDirectories(directory.path() + "/folder"), 0);
  for (const char* name : {"/state", "/folder"}) {
    const auto perms = std::filesystem::status(directory.path() + name).permissions();
    EXPECT_EQ(perms & std::filesystem::perms::others_all, std::filesystem::perms::none) << name;
  }
}

TEST_F(PosixTest, registryFollowsTheFileAndKeepsItsForm) {
  Registry& registry = platform.registry;
  STRING text;
  EXPECT_EQ(registry.readString("K", "v", text), kErrorFileNotFound) << "no file yet";
  write(
      "\xEF\xBB\xBFREGEDIT4\r\n\r\n[HKEY_LOCAL_MACHINE\\K]\r\n\"v\"=\"1\"\r\n\"b\"=hex(2):25,00,"
      "\\\r\n  00,00\r\n");
  ASSERT_EQ(registry.readString("k", "V", text), kOk);
  EXPECT_EQ(text, "1");
  EXPECT_EQ(registry.readString("k", "b", text), kErrorInvalidData);
  ASSERT_EQ(registry.writeString("k", "v", "2"), kOk);
  EXPECT_EQ(read(),
            "\xEF\xBB\xBFREGEDIT4\r\n\r\n[HKEY_LOCAL_MACHINE\\K]\r\n\"v\"=\"2\"\r\n\"b\"=hex(2):25,"
            "00,\\\r\n  00,00\r\n");
  for (const auto& entry : std::filesystem::directory_iterator(directory.path()))
    EXPECT_EQ(unfinishedTarget(entry.path().filename().string()), "") << entry.path();

  write("Windows Registry Editor Version 5.00\n[HKEY_LOCAL_MACHINE\\K]\nnonsense\n");
  EXPECT_EQ(registry.readString("K", "v", text), kErrorBadDatabase);
  EXPECT_EQ(registry.writeString("K", "v", "x"), kErrorBadDatabase)
      << "what is damaged is not overwritten";
  EXPECT_THAT(registry.problem(),
              testing::AllOf(testing::HasSubstr(registryFile), testing::HasSubstr("line 3")));
  write("");
  EXPECT_EQ(registry.problem(), "");
}

TEST_F(PosixTest, registryWritersExcludeEachOther) {
  std::unique_ptr<FileLock> lock;
  ASSERT_EQ(platform.registry.createKey("K"), kOk);
  ASSERT_EQ(platform.files.lock(registryFile + ".lock", lock), 0);
  EXPECT_EQ(platform.registry.writeDword("K", "v", 1), kErrorSharingViolation);
  lock.reset();
  EXPECT_EQ(platform.registry.writeDword("K", "v\n[HKEY_LOCAL_MACHINE\\X]", 1),
            kErrorInvalidParameter);
  EXPECT_EQ(platform.registry.createKey("K]\n[HKEY_LOCAL_MACHINE\\X"), kErrorInvalidParameter);

  const auto other = makeNativePlatform({registryFile, ""});
  const auto writer = platform.threading.createThread(0, [&] {
    for (uint32_t i = 0; i < 25; ++i) other->platform().registry.writeDword("K", "theirs", i);
  });
  for (uint32_t i = 0; i < 25; ++i) EXPECT_EQ(platform.registry.writeDword("K", "ours", i), kOk);
  writer->join(kLongMs);
  uint32_t ours = 0, theirs = 0;
  EXPECT_EQ(platform.registry.readDword("K", "ours", ours), kOk);
  EXPECT_EQ(platform.registry.readDword("K", "theirs", theirs), kOk);
  EXPECT_EQ(ours, 24u);
  EXPECT_EQ(theirs, 24u) << "no write undid another";
}

TEST_F(PosixTest, whatWasWrittenToTheRegistrySurvivesEveryCrashAndNoFlushCanBeLeftOut) {
  ManualClock clock;
  MemoryFiles memory(clock);
  memory.put("/m/machine.reg", "REGEDIT4\n[HKEY_LOCAL_MACHINE\\K]\n\"v\"=dword:00000000\n");
  RecordingFiles recording(memory);
  const auto registryOn = [&](Files& files) {
    return makeNativeRegistry({"/m/machine.reg", ""}, files, platform.devices);
  };
  std::vector<size_t> sureAt;  // the recording's length when each value had been written
  {
    const auto registry = registryOn(recording);
    for (uint32_t value = 1; value <= 3; ++value) {
      ASSERT_EQ(registry->writeDword("K", "v", value), kOk);
      sureAt.push_back(recording.size());
    }
  }
  size_t states = 0;
  const auto lost = [&] {
    size_t count = 0;
    for (size_t entries = 0; entries <= recording.size(); ++entries)
      recording.forEachCrashAfter(entries, [&](const std::string&, MemoryFiles& disk) {
        ++states;
        uint32_t found = 0;
        const uint32_t error = registryOn(disk)->readDword("K", "v", found);
        const auto sure = std::ranges::upper_bound(sureAt, entries) - sureAt.begin();
        count += error != kOk || found < static_cast<uint32_t>(sure);
      });
    return count;
  };
  EXPECT_EQ(lost(), 0u);
  std::printf("%zu states of a registry file\n", states);
  EXPECT_EQ(recording.flushes(), 6u);
  for (size_t flush = 0; flush < recording.flushes(); ++flush) {
    recording.leaveOutFlush(flush);
    EXPECT_GT(lost(), 0u) << recording.describeFlush(flush);
  }
}

TEST_F(PosixTest, aSimulatorThatBreaksTheRulesIsAnErrorOfTheRequest) {
  using tests::simulatorFrame;
  struct Case {
    const char* what;
    tests::SimulatorReply reply;
    uint32_t result;
  };
  const Case cases[] = {
      {"closes without an answer", {"", true}, kErrorDeviceNotConnected},
      {"closes within the header", {std::string(7, '\1'), true}, kErrorDeviceNotConnected},
      {"closes within the output",
       {simulatorFrame(SimulatorFrame::answer, 1, 0, "abcd").substr(0, 22), true},
       kErrorDeviceNotConnected},
      {"answers more than there is room for",
       {simulatorFrame(SimulatorFrame::answer, 1, 0, "abcde")},
       kErrorGenFailure},
      {"answers another request", {simulatorFrame(SimulatorFrame::answer, 2, 0)}, kErrorGenFailure},
      {"sends a frame of another kind",
       {simulatorFrame(SimulatorFrame::request, 1, 0)},
       kErrorGenFailure},
  };
  size_t at = 0;
  tests::SimulatorStandIn simulator(directory.path() + "/kavips.sock",
                                    [&](const auto&) { return cases[at].reply; });
  for (at = 0; at < std::size(cases); ++at) {
    std::unique_ptr<Device> device;
    std::unique_ptr<DeviceRequest> request;
    ASSERT_EQ(platform.devices.open(kDeviceName, device), kOk);
    ASSERT_EQ(device->prepare(7, {}, 4, request), kOk);
    EXPECT_EQ(request->issue(), kErrorIoPending) << cases[at].what;
    EXPECT_EQ(request->wait(kLongMs), DeviceWait::signalled) << cases[at].what;
    EXPECT_EQ(request->result(), cases[at].result) << cases[at].what;
  }
}

}  // namespace
}  // namespace korvane::platform
