// What the steps of bulk transfer have in common.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <tuple>

#include "bulk/bulk_state.h"

namespace korvane::bulk {

inline constexpr char kBulkTag[] = "BulkLogProcessingThread";

inline std::string errorText(int error) {
  return "error " + std::to_string(error);
}

inline uint32_t within(int32_t value, uint32_t least, uint32_t most) {
  return std::clamp(static_cast<uint32_t>(std::max(value, 0)), least, most);
}

inline bool oldestFirst(const LogRecord* a, const LogRecord* b) {
  return std::tie(a->modifiedNs, a->path) < std::tie(b->modifiedNs, b->path);
}

}  // namespace korvane::bulk
