#include <windows.h>

#include "platform/reserved_memory.h"

namespace korvane::platform {

void* reserveMemory(size_t size) {
  return VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_READWRITE);
}

bool commitMemory(void* at, size_t size) {
  return VirtualAlloc(at, size, MEM_COMMIT, PAGE_READWRITE) != nullptr;
}

void releaseMemory(void* reserved, size_t) {
  VirtualFree(reserved, 0, MEM_RELEASE);
}

}  // namespace korvane::platform
