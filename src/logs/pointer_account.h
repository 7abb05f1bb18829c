// What a read pointer keeps of the lines before its position. A value.
#pragma once

#include <cstdint>

#include "ledger/loss_ledger.h"

namespace korvane {

// What tells a log from another one that has its name.
struct LogHead {
  static constexpr int64_t kMaxBytes = 256;

  uint64_t identity = 0;
  uint64_t hash = 0;   // of the first bytes
  uint64_t bytes = 0;  // how many; 0: nothing is known

  friend bool operator==(const LogHead&, const LogHead&) = default;
};

struct PointerAccount {
  StreamState state;
  LogHead head;  // of the pointer's log
};

}  // namespace korvane
