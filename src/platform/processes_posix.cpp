#include <dirent.h>
#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "platform/descriptor_posix.h"
#include "platform/error_codes.h"
#include "platform/monitor_posix.h"
#include "platform/native.h"
#include "platform/paths.h"
#include "platform/processes.h"
#include "util/ignore_result.h"
#include "util/string.h"

namespace korvane::platform {
namespace {

constexpr uint32_t kWaiterStackBytes = 64 * 1024;

uint32_t processError(int error) {
  switch (error) {
    case 0:
      return kOk;
    case ENOENT:
      return kErrorFileNotFound;
    case ENOTDIR:
      return kErrorPathNotFound;
    case EACCES:
    case EPERM:
      return kErrorAccessDenied;
    case ENOMEM:
    case EAGAIN:
      return kErrorNotEnoughMemory;
    case ENOEXEC:
      return kErrorBadExeFormat;
    case ESRCH:
      return kErrorInvalidParameter;
    default:
      return kErrorGenFailure;
  }
}

std::vector<std::string> cutArguments(const std::string& text) {
  std::vector<std::string> arguments;
  bool quoted = false, open = false;
  for (const char c : text) {
    if (c == '"') {
      quoted = !quoted;
      if (!open) arguments.emplace_back();
      open = true;
    } else if (!quoted && (c == ' ' || c == '\t')) {
      open = false;
    } else {
      if (!open) arguments.emplace_back();
      open = true;
      arguments.back() += c;
    }
  }
  return arguments;
}

// What is told of a child that could not run its program.
constexpr int kNotRun = 127;
constexpr int kOldKernelDescriptors = 4096;

// In the child, which shares nothing with other threads any more: system calls alone. Gives the
// errno of what failed.
int becomeProgram(const char* program, char* const* arguments, pid_t parent) {
  // Its own group: a Ctrl-C at the host's terminal is not meant for it.
  if (::setpgid(0, 0) != 0 || ::prctl(PR_SET_PDEATHSIG, SIGKILL) != 0) return errno;
  if (::getppid() != parent) return ESRCH;  // which has ended in between
  const int none = ::open("/dev/null", O_RDWR);
  for (int standard = 0; standard < 3; ++standard)
    if (none < 0 || ::dup2(none, standard) < 0) return errno;
  if (none > 2) ::close(none);
  struct sigaction usual {};
  usual.sa_handler = SIG_DFL;
  for (int signal = 1; signal < NSIG; ++signal) ::sigaction(signal, &usual, nullptr);
  sigset_t nothing;
  sigemptyset(&nothing);
  ::sigprocmask(SIG_SETMASK, &nothing, nullptr);
  ::execve(program, arguments, environ);
  return errno;
}

// Everything but the standard descriptors and the one on which a failure is told closes with the
// program's start.
void keepNothingOpen() {
  if (::close_range(3, ~0u, CLOSE_RANGE_CLOEXEC) == 0) return;
  // A kernel before 5.11. The descriptors of the agent itself close with the start anyway.
  for (int other = 3; other < kOldKernelDescriptors; ++other) ::fcntl(other, F_SETFD, FD_CLOEXEC);
}

// A new process that runs the program; an errno value when it does not.
int spawn(const char* program, char* const* arguments, pid_t& pid) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return errno;
  const Descriptor hears(ends[0]);
  Descriptor tells(ends[1]);
  const pid_t parent = ::getpid();
  sigset_t all, before;
  sigfillset(&all);
  // No handler of this process runs in the child.
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pid = ::fork();
  const int unforked = errno;
  if (pid == 0) {
    keepNothingOpen();
    const int error = becomeProgram(program, arguments, parent);
    ignoreResult(::write(tells.get(), &error, sizeof error));
    ::_exit(kNotRun);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  if (pid < 0) return unforked;
  tells = Descriptor();
  int error = 0;
  ssize_t told;
  do told = ::read(hears.get(), &error, sizeof error);
  while (told < 0 && errno == EINTR);
  if (told <= 0) return 0;
  ::waitpid(pid, nullptr, 0);
  return error;
}

// What a process object shares with the thread that waits for the child, which outlives the object
// when the child does.
struct ChildState {
  explicit ChildState(pid_t id) : pid(id) {}

  const pid_t pid;
  Monitor monitor;
  bool ended GUARDED_BY(monitor) = false;
  bool interrupted GUARDED_BY(monitor) = false;
  uint32_t exitCode GUARDED_BY(monitor) = 0;
};

// Waits for the child and takes it from the system. The taking happens under the lock, so that
// nobody signals a process number that may already belong to another.
void reap(ChildState& state) {
  siginfo_t info{};
  while (::waitid(P_PID, static_cast<id_t>(state.pid), &info, WEXITED | WNOWAIT) != 0 &&
         errno == EINTR)
    continue;
  MonitorLock lock(state.monitor);
  int status = 0;
  ::waitpid(state.pid, &status, 0);
  state.exitCode =
      static_cast<uint32_t>(WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status));
  state.ended = true;
  lock.notifyAll();
}

void* waiterMain(void* argument) {
  const std::unique_ptr<std::shared_ptr<ChildState>> state(
      static_cast<std::shared_ptr<ChildState>*>(argument));
  reap(**state);
  return nullptr;
}

// Starts the thread that waits for the child; every signal is blocked in it, so that the program's
// own handlers run where the program wants them.
bool startWaiter(const std::shared_ptr<ChildState>& state) {
  auto argument = std::make_unique<std::shared_ptr<ChildState>>(state);
  sigset_t all, before;
  sigfillset(&all);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_attr_setstacksize(&attributes, kWaiterStackBytes);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread;
  const bool started = pthread_create(&thread, &attributes, waiterMain, argument.get()) == 0;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  pthread_attr_destroy(&attributes);
  if (started) static_cast<void>(argument.release());
  return started;
}

class PosixProcess final : public Process {
 public:
  explicit PosixProcess(std::shared_ptr<ChildState> state) : _state(std::move(state)) {}
  ~PosixProcess() override { ignoreResult(terminate()); }

  uint64_t id() const override { return static_cast<uint64_t>(_state->pid); }

  ProcessWait wait(uint32_t timeoutMs) override {
    const Deadline deadline(timeoutMs);
    MonitorLock lock(_state->monitor);
    for (;;) {
      if (_state->ended) return ProcessWait::ended;
      if (_state->interrupted) return ProcessWait::interrupted;
      if (timeoutMs == 0 || !lock.waitUntil(deadline))
        return _state->ended ? ProcessWait::ended : ProcessWait::timedOut;
    }
  }

  bool exitCode(uint32_t& out) override {
    MonitorLock lock(_state->monitor);
    if (_state->ended) out = _state->exitCode;
    return _state->ended;
  }

  uint32_t terminate() override {
    MonitorLock lock(_state->monitor);
    if (_state->ended) return kErrorAccessDenied;
    return ::kill(-_state->pid, SIGKILL) == 0 ? kOk : processError(errno);
  }

  void interrupt() override {
    MonitorLock lock(_state->monitor);
    _state->interrupted = true;
    lock.notifyAll();
  }

 private:
  const std::shared_ptr<ChildState> _state;
};

std::string imageOf(const std::string& pid) {
  char target[4096];
  const ssize_t size = ::readlink(("/proc/" + pid + "/exe").c_str(), target, sizeof target);
  return size <= 0 ? "" : fileNameOf(std::string_view(target, static_cast<size_t>(size)));
}

std::string commandOf(const std::string& pid) {
  std::ifstream file("/proc/" + pid + "/cmdline", std::ios::binary);
  std::string first;
  std::getline(file, first, '\0');
  return fileNameOf(first);
}

class PosixProcesses final : public Processes {
 public:
  uint32_t start(const std::string& program, const std::string& arguments,
                 std::unique_ptr<Process>& out) override {
    if (!isAbsolutePath(program)) return kErrorInvalidParameter;
    std::vector<std::string> texts = cutArguments(arguments);
    texts.insert(texts.begin(), program);
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    pid_t pid = 0;
    if (const int error = spawn(program.c_str(), pointers.data(), pid)) return processError(error);
    auto state = std::make_shared<ChildState>(pid);
    if (!startWaiter(state)) {
      ::kill(-pid, SIGKILL);
      reap(*state);
      return kErrorNotEnoughMemory;
    }
    out = std::make_unique<PosixProcess>(std::move(state));
    return kOk;
  }

  bool isRunning(const std::string& imageName) override {
    STRING wanted(imageName);
    if (STRING(imageName).length() > 4 &&
        wanted.substr(wanted.length() - 4).equalsIgnoreCase(".exe"))
      wanted = wanted.substr(0, wanted.length() - 4);
    const std::unique_ptr<DIR, int (*)(DIR*)> processes(::opendir("/proc"), ::closedir);
    if (!processes) return false;
    while (const dirent* entry = ::readdir(processes.get())) {
      const std::string pid = entry->d_name;
      if (pid.find_first_not_of("0123456789") != std::string::npos) continue;
      if (wanted.equalsIgnoreCase(imageOf(pid)) || wanted.equalsIgnoreCase(commandOf(pid)))
        return true;
    }
    return false;
  }

  uint64_t currentId() override { return static_cast<uint64_t>(::getpid()); }

  std::string fileName(const std::string& baseName) const override { return baseName; }
};

}  // namespace

std::unique_ptr<Processes> makeNativeProcesses() {
  return std::make_unique<PosixProcesses>();
}

}  // namespace korvane::platform
