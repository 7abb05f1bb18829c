// An installation of the host's in a folder of its own, with a service of its own name, which is
// stopped and removed with it however the test ends.
#pragma once

#include <windows.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/command_line.h"
#include "platform/clock.h"
#include "platform/handles_win.h"
#include "platform/platform.h"
#include "platform/threading.h"
#include "platform/wide_win.h"
#include "tests/support/temp_directory.h"
#include "windows-machine/service_win.h"

namespace korvane::tests {

inline constexpr uint32_t kPatienceMs = 60000;

inline std::string contentOf(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(fsPath(path), std::ios::binary).rdbuf();
  return text.str();
}

// Looks every few milliseconds until `condition` holds; false when it does not within the limit.
template <class Condition>
bool eventually(Condition condition) {
  platform::Platform& system = platform::current();
  const auto pause = system.threading.createEvent(true, false);
  for (const int64_t begun = system.clock.monotonicMs(); !condition(); pause->wait(10))
    if (system.clock.monotonicMs() - begun > kPatienceMs) return false;
  return true;
}

struct HostRun {
  DWORD status = 0;
  std::string output;
};

class Installation {
 public:
  static constexpr char kFolder[] = "a root \xC3\xA9";  // a blank, and a letter beyond ASCII

  Installation()
      : name("KorvaneTest" + std::to_string(::GetCurrentProcessId()) + "x" +
             std::to_string(::GetTickCount64())) {
    std::filesystem::create_directories(fsPath(path("IPS\\logs")));
  }
  ~Installation() { host({"uninstall", "--name", name}); }
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

  std::string root() const { return _directory.path() + "\\" + kFolder; }
  std::string path(const std::string& file) const { return root() + "\\" + file; }
  void write(const std::string& file, const std::string& text) const {
    std::ofstream(fsPath(path(file)), std::ios::binary) << text;
  }
  // A standard agent whose server nobody runs.
  void configure() const {
    write("IPS\\agent.ini",
          "[Agent]\nagent.http.url=https://127.0.0.1:1/korvane/agent/\n"
          "[AgentLog]\nagentlog.log.trace.messages=true\n");
  }
  // As the service manager has it.
  machine::Service service() const {
    return {platform::current().clock, platform::current().threading, name};
  }
  // How often `part` is in the agent's own log.
  size_t logged(const std::string& part) const {
    size_t count = 0;
    std::error_code none;
    for (const auto& file : std::filesystem::directory_iterator(fsPath(path("IPS\\logs")), none)) {
      const std::u8string name8 = file.path().u8string();
      const std::string text = contentOf({name8.begin(), name8.end()});
      for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    }
    return count;
  }

  // Runs the host to its end.
  HostRun host(const std::vector<std::string>& arguments) const {
    std::vector<std::string> words = {KORVANE_HOST};
    words.insert(words.end(), arguments.begin(), arguments.end());
    // Wine's own programs may hold the output of an earlier run.
    const std::string file = _directory.path() + "\\output" + std::to_string(++_runs);
    HostRun run;
    {
      SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
      const platform::FileHandle output(::CreateFileW(platform::wide(file).c_str(), GENERIC_WRITE,
                                                      FILE_SHARE_READ, &inherited, CREATE_ALWAYS, 0,
                                                      nullptr));
      STARTUPINFOW startup = {};
      startup.cb = sizeof startup;
      startup.dwFlags = STARTF_USESTDHANDLES;
      startup.hStdOutput = startup.hStdError = output.get();
      PROCESS_INFORMATION made = {};
      if (!::CreateProcessW(nullptr, platform::wide(host::commandLine(words)).data(), nullptr,
                            nullptr, TRUE, CREATE_NO_WINDOW, nullptr, nullptr, &startup, &made))
        return {::GetLastError(), "cannot be started"};
      const platform::KernelObject process(made.hProcess);
      const platform::KernelObject thread(made.hThread);
      if (::WaitForSingleObject(process.get(), kPatienceMs) != WAIT_OBJECT_0)
        ::TerminateProcess(process.get(), 258);
      ::GetExitCodeProcess(process.get(), &run.status);
    }
    run.output = contentOf(file);
    return run;
  }
  HostRun install(std::vector<std::string> more = {}) const {
    std::vector<std::string> words = {"install", "--name",         name,  "--start",
                                      "demand",  "--install-root", root()};
    words.insert(words.end(), more.begin(), more.end());
    return host(words);
  }

  const std::string name;

 private:
  TempDirectory _directory;
  mutable int _runs = 0;
};

}  // namespace korvane::tests
