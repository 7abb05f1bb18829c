/* What the compiler's stack protector asks of its runtime. */
#include <ntddk.h>

uintptr_t __stack_chk_guard;

__declspec(noreturn) void __stack_chk_fail(void);
void __stack_chk_fail(void) {
  KeBugCheckEx(0xF7 /* a driver overran a buffer on the stack */, 0, __stack_chk_guard, 0, 0);
}

NTSTATUS NTAPI DriverEntry(PDRIVER_OBJECT driver, PUNICODE_STRING key);

/* The image's entry. It sets the guard while no function that checks it is active. */
__attribute__((optimize("no-stack-protector"))) NTSTATUS NTAPI guardedEntry(PDRIVER_OBJECT driver,
                                                                            PUNICODE_STRING key) {
  const LARGE_INTEGER ticks = KeQueryPerformanceCounter(NULL);
  __stack_chk_guard = (uintptr_t)ticks.QuadPart * 0x9E3779B97F4A7C15 ^ (uintptr_t)driver;
  return DriverEntry(driver, key);
}
