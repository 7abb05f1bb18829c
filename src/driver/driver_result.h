// How a request to the driver, or a change of its settings, ended.
#pragma once

#include <cstdint>

#include "util/string.h"

namespace korvane {

struct NotifyResult {
  static constexpr int32_t completed = 0;  // also when the wait itself failed
  static constexpr int32_t notOpened = 2;
  static constexpr int32_t noEvent = 3;  // no completion event, or the wait was abandoned
  static constexpr int32_t finishedWithError = 4;
  static constexpr int32_t timedOut = 5;
  static constexpr int32_t failedAtOnce = 6;
  static constexpr int32_t moreData = 8;
};

struct [[nodiscard]] DriverResult {
  static constexpr int kRegistryError = 7;

  int code = 0;  // 0, kRegistryError or a NotifyResult
  STRING text;   // the failure's own; empty after a success

  bool ok() const { return code == 0; }
};

}  // namespace korvane
