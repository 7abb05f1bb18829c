#include <windows.h>

#include "platform/clock.h"
#include "platform/native.h"

namespace korvane::platform {
namespace {

// 1970-01-01 in FILETIME's count of 100 ns since 1601-01-01.
constexpr int64_t kUnixEpoch = 116444736000000000;

class WinClock final : public Clock {
 public:
  WinClock() { ::QueryPerformanceFrequency(&_frequency); }

  int64_t monotonicMs() override {
    LARGE_INTEGER now;
    ::QueryPerformanceCounter(&now);
    // Whole seconds apart from the rest, so that the product cannot overflow.
    return now.QuadPart / _frequency.QuadPart * 1000 +
           now.QuadPart % _frequency.QuadPart * 1000 / _frequency.QuadPart;
  }

  int64_t wallMs() override {
    FILETIME now;
    ::GetSystemTimePreciseAsFileTime(&now);
    const int64_t ticks = int64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime;
    return (ticks - kUnixEpoch) / 10000;
  }

 private:
  LARGE_INTEGER _frequency;
};

}  // namespace

std::unique_ptr<Clock> makeNativeClock() {
  return std::make_unique<WinClock>();
}

}  // namespace korvane::platform
