// korvane-machine: what the demo and the end-to-end tests do to a Windows machine from
// outside the agent.
//
//   start NAME     starts a service
//   stop NAME      stops it, and waits for the end of its process
//   kill NAME      ends its process as a crash would
//   status NAME    asks for its state
//   hold FILE      keeps a file open without sharing it until it is ended
//   stay           does nothing until it is ended; Wine ends its services with the last other program
//
// The last line of the output is a JSON object. The exit status is 1 when it could not be done.
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "platform/platform.h"
#include "platform/program_entry.h"
#include "platform/threading.h"
#include "platform/wide_win.h"
#include "windows-machine/service_win.h"

namespace {

using korvane::machine::Service;
namespace platform = korvane::platform;

int start(Service& service) {
  service.start();
  std::printf("{\"pid\":%lu}\n", service.status().dwProcessId);
  return 0;
}

int stop(Service& service) {
  const int64_t took = service.stop();
  const SERVICE_STATUS_PROCESS status = service.status();
  std::printf("{\"ms\":%lld,\"exit_status\":%lu}\n", static_cast<long long>(took),
              status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR
                  ? status.dwServiceSpecificExitCode
                  : status.dwWin32ExitCode);
  return 0;
}

int kill(Service& service) {
  service.kill();
  std::printf("{}\n");
  return 0;
}

int status(Service& service) {
  const SERVICE_STATUS_PROCESS status = service.status();
  std::printf("{\"running\":%s,\"state\":%lu,\"pid\":%lu}\n",
              status.dwCurrentState == SERVICE_RUNNING ? "true" : "false", status.dwCurrentState,
              status.dwProcessId);
  return 0;
}

int stay(platform::Threading& threading) {
  const auto never = threading.createEvent(true, false);
  never->wait(platform::kInfinite);
  return 0;
}

int hold(platform::Threading& threading, const std::string& path) {
  const platform::FileHandle file(::CreateFileW(platform::widePath(path).c_str(),
                                                GENERIC_READ | GENERIC_WRITE, /*dwShareMode=*/0,
                                                nullptr, OPEN_EXISTING, 0, nullptr));
  if (!file) throw std::runtime_error(path + ": " + platform::systemText(::GetLastError()));
  std::printf("{\"held\":true}\n");
  std::fflush(stdout);
  return stay(threading);
}

int run(platform::Platform& system, const std::vector<std::string>& words) {
  if (words.size() == 1 && words[0] == "stay") return stay(system.threading);
  if (words.size() == 2 && words[0] == "hold") return hold(system.threading, words[1]);
  constexpr std::pair<const char*, int (*)(Service&)> kVerbs[] = {
      {"start", start}, {"stop", stop}, {"kill", kill}, {"status", status}};
  for (const auto& [verb, act] : kVerbs) {
    if (words.size() != 2 || words[0] != verb) continue;
    Service service(system.clock, system.threading, words[1]);
    return act(service);
  }
  throw std::invalid_argument("start|stop|kill|status NAME, hold FILE, or stay");
}

}  // namespace

int korvane::programMain(const std::vector<std::string>& arguments) {
  try {
    return run(korvane::platform::current(), arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "korvane-machine: %s\n", error.what());
    return 1;
  }
}
