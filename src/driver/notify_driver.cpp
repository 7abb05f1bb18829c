#include "driver/notify_driver.h"

#include <cstddef>
#include <span>

#include "driver/driver.h"

namespace korvane {

int32_t NotifyDriver(int32_t code, void* buffer, uint32_t size, uint32_t timeoutMs) {
  const std::span<std::byte> bytes(static_cast<std::byte*>(buffer), buffer ? size : 0);
  return currentDriver().request(static_cast<uint32_t>(code), bytes, timeoutMs);
}

}  // namespace korvane
