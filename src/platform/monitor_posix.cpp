#include "platform/monitor_posix.h"

#include <algorithm>
#include <climits>

namespace korvane::platform {

Deadline::Deadline(uint32_t timeoutMs) : infinite(timeoutMs == kInfinite) {
  if (infinite) return;
  clock_gettime(CLOCK_MONOTONIC, &at);
  at.tv_sec += timeoutMs / 1000;
  at.tv_nsec += int64_t{timeoutMs % 1000} * 1000000;
  if (at.tv_nsec >= 1000000000) {
    at.tv_nsec -= 1000000000;
    ++at.tv_sec;
  }
}

int Deadline::remainingMs() const {
  if (infinite) return -1;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const int64_t ns = (int64_t{at.tv_sec} - now.tv_sec) * 1000000000 + (at.tv_nsec - now.tv_nsec);
  return static_cast<int>(std::clamp<int64_t>((ns + 999999) / 1000000, 0, INT_MAX));
}

Monitor::Monitor() {
  pthread_mutex_init(&_mutex, nullptr);
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_cond_init(&_condition, &attributes);
  pthread_condattr_destroy(&attributes);
}

Monitor::~Monitor() {
  pthread_cond_destroy(&_condition);
  pthread_mutex_destroy(&_mutex);
}

MonitorLock::MonitorLock(Monitor& monitor) : _monitor(monitor) {
  pthread_mutex_lock(&_monitor._mutex);
}

MonitorLock::~MonitorLock() {
  pthread_mutex_unlock(&_monitor._mutex);
}

bool MonitorLock::waitUntil(const Deadline& deadline) {
  if (deadline.infinite) return pthread_cond_wait(&_monitor._condition, &_monitor._mutex) == 0;
  return pthread_cond_timedwait(&_monitor._condition, &_monitor._mutex, &deadline.at) == 0;
}

void MonitorLock::notifyAll() {
  pthread_cond_broadcast(&_monitor._condition);
}

}  // namespace korvane::platform
