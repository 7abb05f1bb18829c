// The Linux survey on a made-up system below a folder, and walks past what a stranger may plant.
#include "platform/survey_posix.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>

#include "platform/descriptor_posix.h"
#include "tests/support/temp_directory.h"

namespace korvane::platform {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

class SurveyOfAFolder : public testing::Test, public SurveyGuide {
 protected:
  tests::TempDirectory directory;
  const std::string root = directory.path();
  const std::unique_ptr<Survey> survey = makePosixSurvey(root);
  Lines skips, rows;

  bool goOn() override { return true; }
  void skipped(std::string_view what, int error) override {
    skips.push_back(std::string(what.substr(std::min(root.size(), what.size()))) + " " +
                    std::to_string(error));
  }
  void put(const std::string& path, const std::string& content) {
    fs::create_directories(fs::path(root + path).parent_path());
    std::ofstream(root + path, std::ios::binary) << content;
  }
  void link(const std::string& path, const std::string& target) {
    fs::create_directories(fs::path(root + path).parent_path());
    fs::create_symlink(target, root + path);
  }
  Lines walked(const std::string& below) {
    std::unique_ptr<FileWalk> walk;
    EXPECT_EQ(survey->walk(*this, root + below, walk), 0);
    Lines all;
    for (SurveyedEntry entry; walk->next(entry);) {
      if (entry.isFolder) walk->enter();
      all.push_back(entry.relative);
    }
    std::sort(all.begin(), all.end());
    return all;
  }
};

TEST_F(SurveyOfAFolder, packages) {
  put("/var/lib/dpkg/status",
      "Package: one\nStatus: install ok installed\nMaintainer: A <a@b>\nArchitecture: "
      "amd64\nVersion: 1:2-3\nDescription: x\n"
      " Version: 9\n\nPackage: removed\nStatus: deinstall ok config-files\nVersion: "
      "1\n\n\nPackage: " +
          std::string(100000, 'n') +
          "\nStatus: install ok installed\n\nPackage: last\nStatus: hold ok installed");
  survey->applications(*this, [&](const SurveyedApplication& row) {
    rows.push_back(row.name.substr(0, 20) + "|" + row.version + "|" + row.publisher + "|" +
                   row.architecture);
    EXPECT_LE(row.name.size(), kMostTextBytes);
  });
  EXPECT_EQ(rows, (Lines{"one|1:2-3|A <a@b>|amd64", "nnnnnnnnnnnnnnnnnnnn|||", "last|||"}));
  fs::remove(root + "/var/lib/dpkg/status");
  survey->applications(*this, [](const SurveyedApplication&) { ADD_FAILURE(); });
  EXPECT_EQ(skips, Lines{"/var/lib/dpkg/status 2"});
}

TEST_F(SurveyOfAFolder, units) {
  put("/usr/lib/systemd/system/on.service",
      "[Unit]\nDescription = On\n[Service]\nExecStart=-/bin/on \\\n  "
      "--x\nExecStart=/bin/more\nUser=u\n[Install]\nWantedBy=a\n");
  put("/usr/lib/systemd/system/off.service", "[Install]\n");
  put("/usr/lib/systemd/system/static.service", "[Service]\nExecStart=/bin/s\n");
  put("/usr/lib/systemd/system/over.service", "[Service]\nUser=vendor\n");
  put("/etc/systemd/system/over.service", "[Service]\nUser=local\n");
  put("/usr/lib/systemd/system/getty@.service", "[Install]\n");
  put("/usr/lib/systemd/system/masked.service", "[Install]\n");
  put("/usr/lib/systemd/system/a.socket", "");
  put("/usr/lib/systemd/system/empty.service", "");
  link("/etc/systemd/system/masked.service", "/dev/null");
  link("/etc/systemd/system/alias.service", "/usr/lib/systemd/system/on.service");
  link("/etc/systemd/system/multi-user.target.wants/on.service",
       "/usr/lib/systemd/system/on.service");
  link("/etc/systemd/system/getty.target.wants/getty@tty1.service",
       "/lib/systemd/system/getty@.service");
  link("/lib", "usr/lib");
  survey->services(*this, [&](const SurveyedService& row) {
    rows.push_back(row.name + "|" + row.displayName + "|" + row.start + "|" + row.account + "|" +
                   row.program);
  });
  std::sort(rows.begin(), rows.end());
  EXPECT_EQ(rows, (Lines{"empty.service||masked||", "getty@.service||enabled|root|",
                         "masked.service||masked||", "off.service||disabled|root|",
                         "on.service|On|enabled|u|-/bin/on    --x", "over.service||static|local|",
                         "static.service||static|root|/bin/s"}));
  EXPECT_EQ(skips, Lines{});
}

TEST_F(SurveyOfAFolder, processesAndPorts) {
  put("/proc/1/stat", "1 (init) S 0 1 1 0");
  put("/proc/1/cmdline", std::string("/sbin/init\0splash\0", 18));
  put("/proc/77/stat", "77 (a b) c)) S 1 7");
  put("/proc/77/cmdline", "");
  put("/proc/78/stat", "damaged");
  put("/proc/self/stat", "1 (init) S 0");
  link("/proc/1/exe", "/usr/lib/init");
  survey->processes(*this, [&](const SurveyedProcess& row) {
    rows.push_back(std::to_string(row.id) + "|" + std::to_string(row.parent) + "|" + row.name +
                   "|" + row.image + "|" + row.commandLine);
  });
  std::sort(rows.begin(), rows.end());
  EXPECT_EQ(rows, (Lines{"1|0|init|/usr/lib/init|/sbin/init splash", "77|1|a b) c)||"}));
  rows.clear();
  const std::string head =
      "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout "
      "inode\n";
  put("/proc/net/tcp",
      head + "   0: 0100007F:0016 00000000:0000 0A 0:0 00:00 0 0 0 500 1 x\n" +
          "   1: 0100007F:0017 0100007F:0016 01 0:0 00:00 0 0 0 501 1 x\n" +
          "   2: 00000000:0050 00000000:0000 0A 0:0 00:00 0 0 0 502 1 x\nnonsense\n");
  put("/proc/net/tcp6",
      head + "   0: 00000000000000000000000001000000:01BB 0:0 0A 0:0 00:00 0 0 0 503 1 x\n");
  put("/proc/net/udp", head + "   0: 00000000:0044 00000000:0000 07 0:0 00:00 0 0 0 504 1 x\n");
  link("/proc/1/fd/3", "socket:[500]");
  link("/proc/1/fd/4", "socket:[500]");
  link("/proc/1/fd/5", "/dev/null");
  link("/proc/77/fd/1", "socket:[500]");
  link("/proc/77/fd/2", "socket:[503]");
  link("/proc/77/fd/3", "socket:[501]");
  survey->ports(*this, [&](const SurveyedPort& row) {
    rows.push_back(row.protocol + "|" + row.address + "|" + std::to_string(row.port) + "|" +
                   std::to_string(row.process) + "|" + row.image);
  });
  std::sort(rows.begin(), rows.end());
  EXPECT_EQ(rows, (Lines{"tcp|0.0.0.0|80|0|", "tcp|127.0.0.1|22|1|/usr/lib/init",
                         "tcp|127.0.0.1|22|77|", "tcp|::1|443|77|", "udp|0.0.0.0|68|0|"}));
  EXPECT_EQ(skips, Lines{});
}

TEST_F(SurveyOfAFolder, desktopEntriesAndNoLinksOfAUser) {
  put("/usr/share/applications/a.desktop",
      "[Desktop Entry]\nName=A\nName[de]=Ä\nExec=a --x %F\nPath=/p\n[Desktop Action n]\nExec=b\n");
  put("/usr/share/applications/mimeinfo.cache", "[Desktop Entry]\n");
  put("/home/u/.local/share/applications/q.desktop", "[Desktop Entry]\nExec=\"/a b/c\"  d\n");
  put("/home/u/Desktop/r.desktop", "[Desktop Entry]\nExec=r\n");
  put("/secret/applications/s.desktop", "[Desktop Entry]\nExec=s\n");
  link("/home/u/Desktop/l.desktop", root + "/secret/applications/s.desktop");
  link("/home/v/.local/share", root + "/secret");
  link("/home/w", root + "/home/u");
  survey->shortcuts(*this, [&](const SurveyedShortcut& row) {
    rows.push_back(row.path.substr(root.size()) + "|" + row.name + "|" + row.target + "|" +
                   row.arguments + "|" + row.directory);
  });
  std::sort(rows.begin(), rows.end());
  EXPECT_EQ(rows, (Lines{"/home/u/.local/share/applications/q.desktop||/a b/c|d|",
                         "/home/u/Desktop/r.desktop||r||",
                         "/usr/share/applications/a.desktop|A|a|--x %F|/p"}));
  EXPECT_EQ(skips, Lines{});
}

TEST_F(SurveyOfAFolder, aWalkFollowsNothingOutOfItsRoot) {
  put("/in/a", "a");
  put("/in/sub/b", "b");
  put("/out/secret", "s");
  link("/in/file", root + "/out/secret");
  link("/in/folder", root + "/out");
  link("/in/sub/loop", "..");
  link("/in/gone", "nowhere");
  link("/way", "in");
  ASSERT_EQ(::mkfifo((root + "/in/pipe").c_str(), 0600), 0);
  const Lines expected{"a", "sub", "sub/b"};
  EXPECT_EQ(walked("/in"), expected);
  EXPECT_EQ(walked("/way"), expected) << "the root itself may be a link";
  EXPECT_EQ(skips, Lines{});
}

// Between the look and the step in, a stranger puts a link, or a pipe, in the place.
TEST_F(SurveyOfAFolder, whatIsPutInPlaceOfAnEntryIsNotFollowed) {
  put("/in/sub/b", "b");
  put("/out/secret", "s");
  std::unique_ptr<FileWalk> walk;
  ASSERT_EQ(survey->walk(*this, root + "/in", walk), 0);
  SurveyedEntry entry;
  ASSERT_TRUE(walk->next(entry));
  fs::rename(root + "/in/sub", root + "/in/moved");
  link("/in/sub", root + "/out");
  walk->enter();
  EXPECT_EQ(walk->depth(), 0u);
  ASSERT_TRUE(!walk->next(entry) || entry.name == "moved");

  put("/files/b", "b");
  for (const bool pipe : {false, true}) {
    ASSERT_EQ(survey->walk(*this, root + "/files", walk), 0);
    ASSERT_TRUE(walk->next(entry));
    fs::remove(root + "/files/b");
    if (pipe)
      ASSERT_EQ(::mkfifo((root + "/files/b").c_str(), 0600), 0);
    else
      link("/files/b", root + "/out/secret");
    std::unique_ptr<SurveyedContent> content;
    EXPECT_EQ(walk->open(content), ENOENT);
    EXPECT_EQ(content, nullptr);
    fs::remove(root + "/files/b");
    put("/files/b", "b");
  }
  // A folder that is moved away while the walk is in it leads to no path above its root.
  put("/deep/one/two/x", "x");
  ASSERT_EQ(survey->walk(*this, root + "/deep", walk), 0);
  ASSERT_TRUE(walk->next(entry));
  walk->enter();
  ASSERT_TRUE(walk->next(entry));
  fs::rename(root + "/deep/one/two", root + "/two");
  walk->enter();
  EXPECT_FALSE(walk->next(entry));
  EXPECT_EQ(skips, Lines{});
}

TEST_F(SurveyOfAFolder, whatMayNotBeEnteredIsASkip) {
  if (::geteuid() == 0) GTEST_SKIP() << "root may enter everything";
  put("/in/sub/b", "b");
  fs::permissions(root + "/in/sub", fs::perms::none);
  EXPECT_EQ(walked("/in"), Lines{"sub"});
  EXPECT_EQ(skips, Lines{"/in/sub 13"});
  fs::permissions(root + "/in/sub", fs::perms::owner_all);
}

// Of the running system.
class Anything final : public SurveyGuide {
 public:
  bool goOn() override { return true; }
  void skipped(std::string_view, int) override {}
};

TEST(NativeProcesses, thisOneHasItsParentAndItsCommandLine) {
  Anything guide;
  size_t found = 0;
  makePosixSurvey({})->processes(guide, [&](const SurveyedProcess& row) {
    if (row.id != static_cast<uint64_t>(::getpid())) return;
    ++found;
    EXPECT_EQ(row.parent, static_cast<uint64_t>(::getppid()));
    EXPECT_NE(row.commandLine.find("platform_test"), std::string::npos);
  });
  EXPECT_EQ(found, 1u);
}

TEST(NativePorts, aSocketThatListensHereIsFoundWithItsProcess) {
  const Descriptor socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = ::htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  ASSERT_EQ(::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), size), 0);
  ASSERT_EQ(::listen(socket.get(), 1), 0);
  ASSERT_EQ(::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
  Anything guide;
  size_t found = 0;
  makePosixSurvey({})->ports(guide, [&](const SurveyedPort& row) {
    if (row.port != ::ntohs(address.sin_port) || row.protocol != "tcp") return;
    ++found;
    EXPECT_EQ(row.address, "127.0.0.1");
    EXPECT_EQ(row.process, static_cast<uint64_t>(::getpid()));
    EXPECT_NE(row.image.find("platform_test"), std::string::npos);
  });
  EXPECT_EQ(found, 1u);
}

}  // namespace
}  // namespace korvane::platform
