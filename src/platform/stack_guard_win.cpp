// The stack protector's value and its failures, in place of the compiler's own library for them.
// That one asks the cryptographic service before the program's first line, which loads libraries
// while those beside the program still come first. The value is made at every start from time,
// process, thread, performance counter and where the system placed the program and its stack.
#include <windows.h>

#include <cstdint>

extern "C" {

uintptr_t __stack_chk_guard = 0;

[[noreturn]] void __stack_chk_fail() {
  constexpr UINT kStatusStackBufferOverrun = 0xC0000409;
  ::TerminateProcess(::GetCurrentProcess(), kStatusStackBufferOverrun);
  __builtin_trap();
}

[[noreturn]] void __chk_fail() {
  __stack_chk_fail();
}

}  // extern "C"

namespace {

uint64_t mixed(uint64_t value, uint64_t more) {
  constexpr uint64_t kOddConstant = 0x9E3779B97F4A7C15;
  value = (value ^ more) * kOddConstant;
  return value ^ (value >> 29);
}

__attribute__((constructor(101), optimize("no-stack-protector"))) void makeGuard() {
  FILETIME now = {};
  LARGE_INTEGER counter = {};
  ::GetSystemTimeAsFileTime(&now);
  ::QueryPerformanceCounter(&counter);
  uint64_t value = mixed(now.dwLowDateTime, now.dwHighDateTime);
  value = mixed(value, static_cast<uint64_t>(counter.QuadPart));
  value = mixed(value, uint64_t{::GetCurrentProcessId()} << 32 | ::GetCurrentThreadId());
  value = mixed(value, reinterpret_cast<uintptr_t>(&counter));
  value = mixed(value, reinterpret_cast<uintptr_t>(&__stack_chk_guard));
  // A text that runs over a buffer cannot hold the value's zero byte.
  __stack_chk_guard = value & ~uint64_t{0xFF};
}

}  // namespace
