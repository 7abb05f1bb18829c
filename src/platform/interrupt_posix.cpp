#include "platform/interrupt_posix.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>

namespace korvane::platform {

Interrupt::Interrupt() : _event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

void Interrupt::raise() {
  _raised = true;
  const uint64_t one = 1;
  // The only failure left is a counter that is full, and then the interrupt is raised already.
  [[maybe_unused]] const ssize_t written = ::write(_event.get(), &one, sizeof one);
}

PollResult pollFor(int descriptor, short events, const Deadline& deadline,
                   const Interrupt& interrupt) {
  pollfd waits[] = {{interrupt.descriptor(), POLLIN, 0}, {descriptor, events, 0}};
  for (;;) {
    const int timeout = deadline.remainingMs();
    const int count = ::poll(waits, 2, timeout);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return PollResult::failed;
    if (waits[0].revents) return PollResult::interrupted;
    if (waits[1].revents & POLLNVAL) {
      errno = EBADF;
      return PollResult::failed;
    }
    if (waits[1].revents) return PollResult::ready;
    if (deadline.remainingMs() == 0) return PollResult::timedOut;
  }
}

}  // namespace korvane::platform
