#include <time.h>

#include "platform/clock.h"
#include "platform/native.h"

namespace korvane::platform {
namespace {

int64_t readMs(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

class PosixClock final : public Clock {
 public:
  int64_t monotonicMs() override { return readMs(CLOCK_MONOTONIC); }
  int64_t wallMs() override { return readMs(CLOCK_REALTIME); }
};

}  // namespace

std::unique_ptr<Clock> makeNativeClock() {
  return std::make_unique<PosixClock>();
}

}  // namespace korvane::platform
