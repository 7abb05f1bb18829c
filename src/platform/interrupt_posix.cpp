#include "platform/interrupt_posix.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <iterator>

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
  int which = -1;
  return pollForEither(descriptor, events, -1, deadline, interrupt, which);
}

PollResult pollForEither(int descriptor, short events, int other, const Deadline& deadline,
                         const Interrupt& interrupt, int& which) {
  pollfd waits[] = {
      {interrupt.descriptor(), POLLIN, 0}, {descriptor, events, 0}, {other, POLLIN, 0}};
  for (;;) {
    const int timeout = deadline.remainingMs();
    const int count = ::poll(waits, std::size(waits), timeout);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return PollResult::failed;
    if (waits[0].revents) return PollResult::interrupted;
    if (waits[1].revents & POLLNVAL) {
      errno = EBADF;
      return PollResult::failed;
    }
    which = waits[1].revents ? descriptor : other;
    if (waits[1].revents || waits[2].revents) return PollResult::ready;
    if (deadline.remainingMs() == 0) return PollResult::timedOut;
  }
}

}  // namespace korvane::platform
