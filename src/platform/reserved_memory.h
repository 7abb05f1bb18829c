// Addresses first, memory when it is needed: for platform/growing_buffer.h. Threads: any.
#pragma once

#include <cstddef>

namespace korvane::platform {

// Addresses for so many bytes, without memory; null when there are none. Give them back with
// releaseMemory and the same size.
void* reserveMemory(size_t size);
// Gives some of them memory, zeros. False when the system has none.
[[nodiscard]] bool commitMemory(void* at, size_t size);
void releaseMemory(void* reserved, size_t size);

}  // namespace korvane::platform
