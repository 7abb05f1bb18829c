// Child processes and the list of running ones. Returns are Win32 error numbers.
// Threads: a process object is used by one thread; interrupt() may be called by any other.
//
// Windows: CreateProcess with a hidden window and no inherited handles; the command line is
// passed as it stands; it and what it starts are in a job that ends with the Process object.
// Linux: the command line is cut into arguments at blanks outside double quotes, whose
// marks are dropped; no shell takes part; the child has its own process group, its standard
// descriptors lead to /dev/null and all others are closed. It ends with the thread that started it,
// so with a process that is killed, too.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace korvane::platform {

enum class ProcessWait { ended, timedOut, interrupted, failed };

class Process {
 public:
  // Ends a process that still runs, with those that it has started.
  virtual ~Process() = default;
  virtual uint64_t id() const = 0;
  [[nodiscard]] virtual ProcessWait wait(uint32_t timeoutMs) = 0;
  // The exit code of an ended process; false when it cannot be read. On Linux a process that a
  // signal ended has 128 plus the signal's number.
  [[nodiscard]] virtual bool exitCode(uint32_t& out) = 0;
  // Ends the process at once, with those that it has started; 5 when it has ended already.
  [[nodiscard]] virtual uint32_t terminate() = 0;
  // Makes wait(), the present call and every later one, return `interrupted` unless the process has
  // ended. Any thread.
  virtual void interrupt() = 0;
};

class Processes {
 public:
  virtual ~Processes() = default;
  // Starts `program` (a full path, 87 otherwise) with the argument text `arguments`,
  // hidden, inheriting nothing. 2 when there is no such program, 5 when it may not be run,
  // 193 when it is none.
  [[nodiscard]] virtual uint32_t start(const std::string& program, const std::string& arguments,
                                       std::unique_ptr<Process>& out) = 0;
  // True when a process with this image name ("KAVIDSService.exe", compared without case)
  // runs. On Linux the name of the program file or of its first argument counts, and a
  // trailing ".exe" asked for is left out.
  virtual bool isRunning(const std::string& imageName) = 0;
  virtual uint64_t currentId() = 0;
  // The file name of a program: "translate.exe" for "translate" on Windows, the name itself
  // on Linux.
  virtual std::string fileName(const std::string& baseName) const = 0;
};

}  // namespace korvane::platform
