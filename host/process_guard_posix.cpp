#include "host/process_guard.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "host/messages.h"

namespace korvane::host {
namespace {

void tell(const char* what) {
  say("cannot " + std::string(what) + ", error " + std::to_string(errno));
}

// Limits go down only, so nothing gets them back.
void limitTo(decltype(RLIMIT_CORE) what, rlim_t most) {
  rlimit limit{};
  if (getrlimit(what, &limit) != 0) return tell("read a limit");
  limit.rlim_max = std::min(limit.rlim_max, most);
  limit.rlim_cur = std::min(limit.rlim_cur, most);
  if (setrlimit(what, &limit) != 0) tell("set a limit");
}

}  // namespace

void guardProcess() {
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) tell("give up new privileges");
  limitTo(RLIMIT_NOFILE, kMostDescriptors);
  limitTo(RLIMIT_CORE, 0);
  // A program that takes core dumps through a pipe is not bound by the limit: it gets no memory.
  const int filter = open("/proc/self/coredump_filter", O_WRONLY | O_CLOEXEC);
  if (filter < 0 || write(filter, "0\n", 2) != 2) tell("leave the memory out of core dumps");
  if (filter >= 0) close(filter);
  const bool dumpable = KORVANE_DEBUGGABLE || geteuid() != 0;
  if (!dumpable && prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) != 0) tell("refuse core dumps");
}

}  // namespace korvane::host
