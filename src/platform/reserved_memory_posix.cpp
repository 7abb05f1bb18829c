#include <sys/mman.h>

#include "platform/reserved_memory.h"

namespace korvane::platform {

void* reserveMemory(size_t size) {
  void* const at = ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  return at == MAP_FAILED ? nullptr : at;
}

// The system does it at the first use of each page.
bool commitMemory(void*, size_t) {
  return true;
}

void releaseMemory(void* reserved, size_t size) {
  ::munmap(reserved, size);
}

}  // namespace korvane::platform
