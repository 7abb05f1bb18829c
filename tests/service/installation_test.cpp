// The commands that put the host into the service manager and take it out.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <shellapi.h>

#include <future>

#include "host/agent_service.h"
#include "host/directory_access_win.h"
#include "host/service_handles_win.h"
#include "host/text_win.h"
#include "tests/service/installation_win.h"

namespace korvane {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;
using tests::HostRun;
using tests::Installation;

std::vector<std::string> splitCommandLine(const std::string& line) {
  int count = 0;
  const host::LocalMemory<LPWSTR*> words(
      ::CommandLineToArgvW(platform::wide(line).c_str(), &count));
  std::vector<std::string> all;
  for (int i = 0; i < count; ++i) all.push_back(host::narrow(words.get()[i]));
  return all;
}

TEST(CommandLine, IsTakenApartAsItWasPutTogether) {
  const std::vector<std::string> cases[] = {
      {"C:\\Program Files\\korvane-host.exe", "service"},
      {"C:\\a.exe", "--root", "D:\\with blank\\", "next"},
      {"C:\\a.exe", "a \"quoted\" word", "\\\"", "ends in \\\\", "", "\t"},
      {"C:\\a.exe", "plain\\", "D:\\ünïcode\\"},
  };
  for (const std::vector<std::string>& row : cases) {
    const std::string line = host::commandLine(row);
    EXPECT_THAT(line, StartsWith("\"" + row[0] + "\""));
    EXPECT_EQ(splitCommandLine(line), row) << line;
  }
  EXPECT_EQ(host::programOf("\"C:\\Program Files\\a b.exe\" x"), "a b.exe");
  EXPECT_EQ(host::programOf("C:\\Windows\\notepad.exe \"x\""), "notepad.exe");
}

TEST(DirectoryAccess, WhoElseMayChangeADirectoryIsFoundAndShutOut) {
  const tests::TempDirectory directory;
  const std::string path = directory.path() + "\\new\\open";
  host::protectDirectory(path, "O:BAD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;FA;;;WD)");
  EXPECT_THAT(host::readAccess(path).strangers, ElementsAre("S-1-1-0"));
  host::protectDirectory(path, host::kClosedAccess);
  EXPECT_THAT(host::readAccess(path).strangers, IsEmpty());
  EXPECT_EQ(host::readAccess(path).text.find(";;;WD)"), std::string::npos) << "nor read it";
}

std::string keptCommandLine(const std::string& name) {
  const machine::ServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  const machine::ServiceHandle service(
      ::OpenServiceW(manager.get(), platform::wide(name).c_str(), SERVICE_QUERY_CONFIG));
  BYTE bytes[8192];
  DWORD size = 0;
  auto* config = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(bytes);
  if (!::QueryServiceConfigW(service.get(), config, sizeof bytes, &size)) return "none";
  return host::narrow(config->lpBinaryPathName);
}

TEST(Installation, IsRepeatedAsAnUpdateAndRemovedOnce) {
  const Installation agent;
  const HostRun first = agent.install();
  EXPECT_EQ(first.status, 0u) << first.output;
  EXPECT_THAT(first.output, HasSubstr("service " + agent.name + " installed: \""));
  EXPECT_THAT(first.output, HasSubstr("access " + agent.path("IPS") + " O:"));
  EXPECT_THAT(splitCommandLine(keptCommandLine(agent.name)).at(3), agent.root());
  const HostRun again = agent.install({"--stop-deadline", "7"});
  EXPECT_EQ(again.status, 0u) << again.output;
  EXPECT_THAT(again.output, HasSubstr(" updated: "));
  EXPECT_THAT(keptCommandLine(agent.name), HasSubstr("--stop-deadline 7"));
  const HostRun removed = agent.host({"uninstall", "--name", agent.name});
  EXPECT_EQ(removed.status, 0u) << removed.output;
  const HostRun missing = agent.host({"uninstall", "--name", agent.name});
  EXPECT_EQ(missing.status, DWORD{host::kExitNoService});
  EXPECT_THAT(missing.output, HasSubstr("there is no service " + agent.name));
}

TEST(Installation, StopsARunningServiceBeforeItRemovesIt) {
  const Installation agent;
  ASSERT_EQ(agent.install().status, 0u);
  agent.service().start();
  const DWORD id = agent.service().status().dwProcessId;
  const platform::KernelObject process(::OpenProcess(SYNCHRONIZE, FALSE, id));
  ASSERT_TRUE(process);
  EXPECT_EQ(agent.host({"uninstall", "--name", agent.name}).status, 0u);
  EXPECT_EQ(::WaitForSingleObject(process.get(), 0), WAIT_OBJECT_0);
  EXPECT_EQ(agent.logged(",10110,"), 1u) << "the agent has finished its teardown";
}

TEST(Installation, TakesOverWhatLayThereBefore) {
  const Installation agent;
  agent.write("IPS\\planted.ini", "a stranger's");
  const std::string planted = agent.path("IPS\\planted.ini");
  host::protectDirectory(agent.path("IPS\\open"), "O:BAD:PAI(A;OICI;FA;;;SY)(A;OICI;FA;;;WD)");
  const HostRun run = agent.install();
  EXPECT_EQ(run.status, 0u) << run.output;
  EXPECT_THAT(run.output,
              HasSubstr("repaired owner and access list of " + agent.path("IPS\\open")));
  EXPECT_THAT(host::readAccess(agent.path("IPS\\open")).strangers, IsEmpty());
  EXPECT_THAT(host::readAccess(planted).strangers, IsEmpty());
}

TEST(Installation, LeavesAServiceOfAnotherProgramAlone) {
  const Installation agent;
  const machine::ServiceHandle manager(
      ::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
  const machine::ServiceHandle other(::CreateServiceW(
      manager.get(), platform::wide(agent.name).c_str(), nullptr, SERVICE_ALL_ACCESS,
      SERVICE_WIN32_OWN_PROCESS, SERVICE_DEMAND_START, SERVICE_ERROR_IGNORE, L"C:\\other.exe -x",
      nullptr, nullptr, nullptr, nullptr, nullptr));
  ASSERT_TRUE(other);
  const HostRun run = agent.install();
  EXPECT_EQ(run.status, DWORD{host::kExitOtherService});
  EXPECT_THAT(run.output, HasSubstr("runs another program: C:\\other.exe -x"));
  EXPECT_EQ(keptCommandLine(agent.name), "C:\\other.exe -x");
}

TEST(Installation, NamesWhatFailedAndTheNumber) {
  const Installation agent;
  agent.write("file", "");
  const HostRun noDirectory =
      agent.host({"install", "--name", agent.name, "--install-root", agent.path("file")});
  EXPECT_EQ(noDirectory.status, DWORD{host::kExitFailed});
  EXPECT_THAT(noDirectory.output, HasSubstr("cannot use " + agent.path("file") + ": error 267"));
  EXPECT_EQ(keptCommandLine(agent.name), "none");
  const HostRun noManager = agent.host({"service", "--install-root", agent.root()});
  EXPECT_EQ(noManager.status, DWORD{host::kExitFailed});
  EXPECT_THAT(noManager.output, HasSubstr("error 1063"));
}

TEST(Run, EndsWithStatusZeroWhenItsStopEventIsSet) {
  const Installation agent;
  const std::string event = "korvane-test-" + agent.name;
  const platform::KernelObject stop(
      ::CreateEventW(nullptr, FALSE, FALSE, platform::wide(event).c_str()));
  std::future<HostRun> run = std::async(std::launch::async, [&] {
    return agent.host({"run", "--install-root", agent.root(), "--stop-event", event});
  });
  EXPECT_TRUE(tests::eventually([&] { return agent.logged(",10106,") == 1; }));
  ::SetEvent(stop.get());
  const HostRun ended = run.get();
  EXPECT_EQ(ended.status, 0u);
  EXPECT_THAT(ended.output, HasSubstr("korvane-host: the agent has stopped"));
}

}  // namespace
}  // namespace korvane
