#include "platform/thread_time_win.h"

#include <windows.h>
#include <x86intrin.h>

#include <algorithm>

namespace korvane::platform {
namespace {

int64_t tenthsOfMicroseconds(const FILETIME& time) {
  return int64_t{time.dwHighDateTime} << 32 | time.dwLowDateTime;
}

}  // namespace

ThreadTime::ThreadTime() : _startCycle(__rdtsc()) {
  LARGE_INTEGER frequency;
  if (::QueryPerformanceFrequency(&frequency)) _frequency = frequency.QuadPart;
  _startUs = wallUs();
}

int64_t ThreadTime::wallUs() const {
  LARGE_INTEGER now;
  ::QueryPerformanceCounter(&now);
  return now.QuadPart / _frequency * 1'000'000 + now.QuadPart % _frequency * 1'000'000 / _frequency;
}

int64_t ThreadTime::cpuUs() {
  ULONG64 cycles = 0;
  if (::QueryThreadCycleTime(::GetCurrentThread(), &cycles) && cycles > 0) {
    const auto lived = static_cast<double>(std::max<int64_t>(wallUs() - _startUs, 1));
    const double cyclesPerUs = static_cast<double>(__rdtsc() - _startCycle) / lived;
    _ranUs += static_cast<double>(cycles - _cycles) / std::max(cyclesPerUs, 1.0);
    _cycles = cycles;
    return static_cast<int64_t>(_ranUs);
  }
  FILETIME made, ended, inKernel, inUser;
  if (!::GetThreadTimes(::GetCurrentThread(), &made, &ended, &inKernel, &inUser)) return 0;
  return (tenthsOfMicroseconds(inKernel) + tenthsOfMicroseconds(inUser)) / 10;
}

}  // namespace korvane::platform
