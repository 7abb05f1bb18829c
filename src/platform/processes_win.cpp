#include "platform/error_codes.h"
#include "platform/handles_win.h"
#include "platform/interrupt_win.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "platform/processes.h"
#include "platform/wide_win.h"
#include "util/ignore_result.h"
#include "util/string.h"

// Behind windows.h, which it needs.
#include <tlhelp32.h>

namespace korvane::platform {
namespace {

constexpr UINT kTerminatedCode = 1;

class WinProcess final : public Process {
 public:
  WinProcess(KernelObject process, DWORD id) : _process(std::move(process)), _id(id) {}

  bool valid() const { return _interrupt.valid(); }
  uint64_t id() const override { return _id; }

  ProcessWait wait(uint32_t timeoutMs) override {
    switch (waitForObject(_process.get(), timeoutMs, _interrupt)) {
      case ObjectWait::signalled:
        return ProcessWait::ended;
      case ObjectWait::timedOut:
        return ProcessWait::timedOut;
      case ObjectWait::interrupted:
        return ProcessWait::interrupted;
      case ObjectWait::abandoned:
      case ObjectWait::failed:
        break;
    }
    return ProcessWait::failed;
  }

  // A process may end with the number that a running one shows: only one that has ended is asked.
  bool exitCode(uint32_t& out) override {
    DWORD code = 0;
    if (!ended() || !::GetExitCodeProcess(_process.get(), &code)) return false;
    out = code;
    return true;
  }

  uint32_t terminate() override {
    if (ended()) return kErrorAccessDenied;
    return ::TerminateProcess(_process.get(), kTerminatedCode) ? kOk : ::GetLastError();
  }

  void interrupt() override { _interrupt.raise(); }

 private:
  bool ended() const { return ::WaitForSingleObject(_process.get(), 0) == WAIT_OBJECT_0; }

  const KernelObject _process;
  const DWORD _id;
  WinInterrupt _interrupt;
};

uint32_t launch(const std::wstring& program, std::wstring commandLine, PROCESS_INFORMATION& made) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  if (::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr,
                       /*bInheritHandles=*/FALSE, CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                       &made))
    return kOk;
  const DWORD error = ::GetLastError();
  return error == ERROR_PATH_NOT_FOUND ? kErrorFileNotFound : error;
}

class WinProcesses final : public Processes {
 public:
  uint32_t start(const std::string& program, const std::string& arguments,
                 std::unique_ptr<Process>& out) override {
    if (!isAbsolutePath(program)) return kErrorInvalidParameter;
    const std::wstring path = widePath(program);
    PROCESS_INFORMATION made{};
    const std::wstring tail = arguments.empty() ? L"" : L" " + wide(arguments);
    if (const uint32_t error = launch(path, L"\"" + path + L"\"" + tail, made)) return error;
    const KernelObject thread(made.hThread);
    auto process = std::make_unique<WinProcess>(KernelObject(made.hProcess), made.dwProcessId);
    if (!process->valid()) {
      // Without an event nobody could wait for the process.
      ignoreResult(process->terminate());
      return kErrorNotEnoughMemory;
    }
    out = std::move(process);
    return kOk;
  }

  bool isRunning(const std::string& imageName) override {
    const STRING wanted(imageName);
    const FileHandle snapshot(::CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0));
    if (!snapshot) return false;
    PROCESSENTRY32W entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = ::Process32FirstW(snapshot.get(), &entry); more;
         more = ::Process32NextW(snapshot.get(), &entry))
      if (wanted.equalsIgnoreCase(narrow(entry.szExeFile))) return true;
    return false;
  }

  uint64_t currentId() override { return ::GetCurrentProcessId(); }

  std::string fileName(const std::string& baseName) const override { return baseName + ".exe"; }
};

}  // namespace

std::unique_ptr<Processes> makeNativeProcesses() {
  return std::make_unique<WinProcesses>();
}

}  // namespace korvane::platform
