#include "tools/server/stop_signal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <system_error>

namespace korvane::server {

namespace {

int clampedMs(std::chrono::milliseconds length) {
  return static_cast<int>(std::clamp<int64_t>(length.count(), 0, INT_MAX));
}

}  // namespace

StopSignal::StopSignal() : _descriptor(eventfd(0, EFD_CLOEXEC)) {
  if (_descriptor < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
}

StopSignal::~StopSignal() {
  close(_descriptor);
}

void StopSignal::set() {
  _set = true;
  eventfd_write(_descriptor, 1);
}

bool StopSignal::waitFor(int descriptor, short events, std::chrono::milliseconds limit) const {
  pollfd polled[] = {{_descriptor, POLLIN, 0}, {descriptor, events, 0}};
  int ready;
  do {
    ready = poll(polled, 2, clampedMs(limit));
  } while (ready < 0 && errno == EINTR);
  return ready > 0 && polled[0].revents == 0;
}

bool StopSignal::pause(std::chrono::milliseconds length) const {
  pollfd polled = {_descriptor, POLLIN, 0};
  while (poll(&polled, 1, clampedMs(length)) < 0 && errno == EINTR) {
  }
  return !isSet();
}

}  // namespace korvane::server
