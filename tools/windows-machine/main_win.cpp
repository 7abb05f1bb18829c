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

#include "platform/platform.h"
#include "platform/program_entry.h"
#include "platform/threading.h"
#include "platform/wide_win.h"
#include "windows-machine/service_win.h"

namespace {

using korvane::machine::Service;
namespace platform = korvane::platform;

int start(const std::string& name) {
  Service service(name);
  service.start();
  std::printf("{\"pid\":%lu}\n", service.status().dwProcessId);
  return 0;
}

int stop(const std::string& name) {
  Service service(name);
  const int64_t took = service.stop();
  const SERVICE_STATUS_PROCESS status = service.status();
  std::printf("{\"ms\":%lld,\"exit_status\":%lu}\n", static_cast<long long>(took),
              status.dwWin32ExitCode == ERROR_SERVICE_SPECIFIC_ERROR
                  ? status.dwServiceSpecificExitCode
                  : status.dwWin32ExitCode);
  return 0;
}

int kill(const std::string& name) {
  Service(name).kill();
  std::printf("{}\n");
  return 0;
}

int status(const std::string& name) {
  const SERVICE_STATUS_PROCESS status = Service(name).status();
  std::printf("{\"running\":%s,\"state\":%lu,\"pid\":%lu}\n",
              status.dwCurrentState == SERVICE_RUNNING ? "true" : "false", status.dwCurrentState,
              status.dwProcessId);
  return 0;
}

int stay() {
  const auto never = platform::current().threading.createEvent(true, false);
  never->wait(platform::kInfinite);
  return 0;
}

int hold(const std::string& path) {
  const platform::FileHandle file(::CreateFileW(platform::widePath(path).c_str(),
                                                GENERIC_READ | GENERIC_WRITE, /*dwShareMode=*/0,
                                                nullptr, OPEN_EXISTING, 0, nullptr));
  if (!file) throw std::runtime_error(path + ": " + platform::systemText(::GetLastError()));
  std::printf("{\"held\":true}\n");
  std::fflush(stdout);
  return stay();
}

int run(const std::vector<std::string>& words) {
  if (words.size() == 1 && words[0] == "stay") return stay();
  const std::string what = words.size() == 2 ? words[0] : "";
  if (what == "start") return start(words[1]);
  if (what == "stop") return stop(words[1]);
  if (what == "kill") return kill(words[1]);
  if (what == "status") return status(words[1]);
  if (what == "hold") return hold(words[1]);
  throw std::invalid_argument("start|stop|kill|status NAME, hold FILE, or stay");
}

}  // namespace

int korvane::programMain(const std::vector<std::string>& arguments) {
  try {
    return run(arguments);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "korvane-machine: %s\n", error.what());
    return 1;
  }
}
