#include "platform/error_codes.h"
#include "platform/handles_win.h"
#include "platform/interrupt_win.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "platform/processes.h"
#include "platform/wide_win.h"
#include "util/string.h"

// Behind windows.h, which it needs.
#include <tlhelp32.h>

namespace korvane::platform {
namespace {

constexpr UINT kTerminatedCode = 1;

class WinProcess final : public Process {
 public:
  // The job's last handle ends what is left in it, however this process ends.
  WinProcess(KernelObject process, DWORD id, KernelObject job)
      : _process(std::move(process)), _id(id), _job(std::move(job)) {}

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
    return ::TerminateJobObject(_job.get(), kTerminatedCode) ? kOk : ::GetLastError();
  }

  void interrupt() override { _interrupt.raise(); }

 private:
  bool ended() const { return ::WaitForSingleObject(_process.get(), 0) == WAIT_OBJECT_0; }

  const KernelObject _process;
  const DWORD _id;
  const KernelObject _job;
  WinInterrupt _interrupt;
};

// Empty, with the last error, when there is none to have.
KernelObject makeJob() {
  KernelObject job(::CreateJobObjectW(nullptr, nullptr));
  JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits{};
  limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
  if (job && !::SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits,
                                        sizeof limits))
    return KernelObject();
  return job;
}

// It does not run yet.
uint32_t launch(const std::wstring& program, std::wstring commandLine, PROCESS_INFORMATION& made) {
  STARTUPINFOW startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESHOWWINDOW;
  startup.wShowWindow = SW_HIDE;
  if (::CreateProcessW(program.c_str(), commandLine.data(), nullptr, nullptr,
                       /*bInheritHandles=*/FALSE, CREATE_NO_WINDOW | CREATE_SUSPENDED, nullptr,
                       nullptr, &startup, &made))
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
    KernelObject job = makeJob();
    if (!job) return ::GetLastError();
    const std::wstring tail = arguments.empty() ? L"" : L" " + wide(arguments);
    if (const uint32_t error = launch(path, L"\"" + path + L"\"" + tail, made)) return error;
    const KernelObject thread(made.hThread);
    KernelObject child(made.hProcess);
    if (!::AssignProcessToJobObject(job.get(), child.get())) {
      const DWORD error = ::GetLastError();
      ::TerminateProcess(child.get(), kTerminatedCode);
      return error;
    }
    auto process = std::make_unique<WinProcess>(std::move(child), made.dwProcessId, std::move(job));
    // Without an event nobody could wait for the process, which ends with its job.
    if (!process->valid()) return kErrorNotEnoughMemory;
    ::ResumeThread(thread.get());
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
