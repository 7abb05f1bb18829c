// What the service manager sees of the host, with agent libraries that misbehave.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cwchar>
#include <tuple>

#include "host/agent_service.h"
#include "tests/service/installation_win.h"

namespace korvane {
namespace {

using ::testing::HasSubstr;
using tests::Installation;

// The states of a service in their order, each with the check-points that were seen.
class Watched {
 public:
  explicit Watched(const std::string& name)
      : _manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT)),
        _service(::OpenServiceW(_manager.get(), platform::wide(name).c_str(), SERVICE_ALL_ACCESS)) {
  }

  bool start() { return ::StartServiceW(_service.get(), 0, nullptr) != FALSE; }
  DWORD control(DWORD code) {
    SERVICE_STATUS ignored = {};
    return ::ControlService(_service.get(), code, &ignored) ? NO_ERROR : ::GetLastError();
  }
  // Until the service is in that state, or has stopped.
  SERVICE_STATUS_PROCESS watch(DWORD wanted) {
    SERVICE_STATUS_PROCESS status = {};
    tests::eventually([&] {
      status = look();
      return status.dwCurrentState == wanted || status.dwCurrentState == SERVICE_STOPPED;
    });
    return status;
  }
  platform::KernelObject process() {
    return platform::KernelObject(
        ::OpenProcess(SYNCHRONIZE | PROCESS_QUERY_INFORMATION, FALSE, look().dwProcessId));
  }
  // How many check-points the state showed, each above the one before; 0 when one was not.
  size_t checkPoints(DWORD state) const {
    size_t count = 0;
    DWORD before = 0;
    for (const auto& [seen, checkPoint] : _seen) {
      if (seen != state) continue;
      if (checkPoint <= before) return 0;
      before = checkPoint;
      ++count;
    }
    return count;
  }

 private:
  SERVICE_STATUS_PROCESS look() {
    SERVICE_STATUS_PROCESS status = {};
    DWORD size = 0;
    ::QueryServiceStatusEx(_service.get(), SC_STATUS_PROCESS_INFO, reinterpret_cast<BYTE*>(&status),
                           sizeof status, &size);
    const std::pair now(status.dwCurrentState, status.dwCheckPoint);
    if (_seen.empty() || _seen.back() != now) _seen.push_back(now);
    return status;
  }

  machine::ServiceHandle _manager;
  machine::ServiceHandle _service;
  std::vector<std::pair<DWORD, DWORD>> _seen;
};

struct OddService {
  explicit OddService(const char* way) : watched((install(way), installation.name)) {}
  void install(const char* way) const {
    installation.write("odd-agent", way);
    const tests::HostRun run =
        installation.install({"--library", ODD_AGENT_LIBRARY, "--stop-deadline", "5"});
    EXPECT_EQ(run.status, 0u) << run.output;
  }
  tests::HostRun uninstall(const char* seconds) const {
    return installation.host({"uninstall", "--name", installation.name, "--stop-timeout", seconds});
  }
  std::string log() const {
    return tests::contentOf(installation.path("IPS\\logs\\korvane-host.log"));
  }
  Installation installation;
  Watched watched;
};

TEST(Service, IsStartingWithCheckPointsUntilTheAgentHasComeUp) {
  OddService service("late");
  ASSERT_TRUE(service.watched.start());
  EXPECT_EQ(service.watched.watch(SERVICE_RUNNING).dwCurrentState, DWORD{SERVICE_RUNNING});
  EXPECT_GE(service.watched.checkPoints(SERVICE_START_PENDING), 2u);
}

TEST(Service, IsStoppingWithCheckPointsUntilTheAgentHasReturned) {
  OddService service("slow");
  ASSERT_TRUE(service.watched.start());
  const SERVICE_STATUS_PROCESS running = service.watched.watch(SERVICE_RUNNING);
  const DWORD accepted = SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN | SERVICE_ACCEPT_PRESHUTDOWN;
  EXPECT_EQ(running.dwControlsAccepted, accepted);
  EXPECT_EQ(service.watched.control(SERVICE_CONTROL_INTERROGATE), DWORD{NO_ERROR});
  EXPECT_EQ(service.watched.control(SERVICE_CONTROL_STOP), DWORD{NO_ERROR});
  EXPECT_EQ(service.watched.watch(SERVICE_STOPPED).dwWin32ExitCode, DWORD{NO_ERROR});
  EXPECT_GE(service.watched.checkPoints(SERVICE_STOP_PENDING), 2u);
  EXPECT_THAT(service.log(), HasSubstr("korvane-host: the agent has stopped"));
}

TEST(Service, AnEndThatNobodyAskedForIsAFailureOfTheService) {
  const std::tuple<const char*, DWORD, const char*> cases[] = {
      {"posts-its-end", host::kExitAgentEnded, "the agent ended itself (ACMD_ExitService)"},
      {"returns-at-once", host::kExitFailed,
       "the agent ended without a stop request and without a mailbox"},
  };
  for (const auto& [way, code, line] : cases) {
    SCOPED_TRACE(way);
    OddService service(way);
    ASSERT_TRUE(service.watched.start());
    const SERVICE_STATUS_PROCESS end = service.watched.watch(SERVICE_STOPPED);
    EXPECT_EQ(end.dwCurrentState, DWORD{SERVICE_STOPPED});
    EXPECT_EQ(end.dwWin32ExitCode, DWORD{ERROR_SERVICE_SPECIFIC_ERROR});
    EXPECT_EQ(end.dwServiceSpecificExitCode, code);
    EXPECT_THAT(service.log(), HasSubstr(line));
  }
}

// The strings of the list that the service manager keeps, a blank between them; none where it keeps none.
std::string requiredPrivileges(const std::string& name) {
  const machine::ServiceHandle manager(::OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
  const machine::ServiceHandle service(
      ::OpenServiceW(manager.get(), platform::wide(name).c_str(), SERVICE_QUERY_CONFIG));
  alignas(SERVICE_REQUIRED_PRIVILEGES_INFOW) BYTE bytes[2048] = {};
  DWORD size = 0;
  if (!::QueryServiceConfig2W(service.get(), SERVICE_CONFIG_REQUIRED_PRIVILEGES_INFO, bytes,
                              sizeof bytes, &size))
    return {};
  const wchar_t* at =
      reinterpret_cast<SERVICE_REQUIRED_PRIVILEGES_INFOW*>(bytes)->pmszRequiredPrivileges;
  std::string all;
  for (; at && *at; at += std::wcslen(at) + 1)
    all += (all.empty() ? "" : " ") + platform::narrow(at);
  return all;
}

TEST(Service, ItsTokenHasThePrivilegesThatItNeedsAndNoOther) {
  OddService service("obeys");
  const std::string listed = requiredPrivileges(service.installation.name);
  if (listed.empty()) GTEST_SKIP() << "this service manager keeps no such list";
  EXPECT_EQ(listed, "SeChangeNotifyPrivilege SeImpersonatePrivilege");
  ASSERT_TRUE(service.watched.start());
  service.watched.watch(SERVICE_RUNNING);
  const std::string log = service.log();
  for (const char* name : {"SeChangeNotifyPrivilege", "SeImpersonatePrivilege"})
    EXPECT_THAT(log, HasSubstr(name));
  for (const char* name : {"SeTcbPrivilege", "SeDebugPrivilege", "SeLoadDriverPrivilege"})
    EXPECT_EQ(log.find(name), std::string::npos) << name;
}

// What the service manager makes of a process that is gone is its own matter, and Wine's
// makes nothing of it.
TEST(Service, AnAgentThatDoesNotReturnIsEndedWithItsProcess) {
  const std::tuple<const char*, bool, DWORD, const char*> cases[] = {
      {"ends-itself", false, host::kExitAgentEnded,
       "the agent ended itself but did not return within 5 s; ending the process"},
      {"never-returns", true, host::kExitNotReturned,
       "the agent did not stop within 5 s; ending the process"},
  };
  for (const auto& [way, toBeStopped, code, line] : cases) {
    SCOPED_TRACE(way);
    OddService service(way);
    ASSERT_TRUE(service.watched.start());
    const platform::KernelObject process = service.watched.process();
    if (toBeStopped) {
      const tests::HostRun tooShort = service.uninstall("1");
      EXPECT_EQ(tooShort.status, DWORD{host::kExitNotReturned});
      EXPECT_THAT(tooShort.output, HasSubstr("did not stop within 1 s and stays"));
    }
    EXPECT_EQ(::WaitForSingleObject(process.get(), tests::kPatienceMs), WAIT_OBJECT_0);
    DWORD status = 0;
    ::GetExitCodeProcess(process.get(), &status);
    EXPECT_EQ(status, code);
    EXPECT_THAT(service.log(), HasSubstr(line));
    EXPECT_EQ(service.uninstall("30").status, 0u);
  }
}

}  // namespace
}  // namespace korvane
