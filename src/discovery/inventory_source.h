// Whoever collects the inventory of this machine, for the thread that delivers it.
//
// Used by one thread. A collection ends soon after the stop was requested. What cannot be collected
// is an outcome; nothing but std::bad_alloc is thrown.
#pragma once

#include <cstdint>
#include <string>

#include "util/string.h"

namespace korvane {

class StopToken;

// Full paths.
struct InventoryFiles {
  STRING definition;    // empty for none
  STRING definitionV2;  // empty for none
  STRING output;        // where the inventory goes, as XML
  STRING shortcuts;     // where shortcuts go, when the definition asks for them
};

struct InventoryResult {
  bool written = false;   // there is an inventory
  bool complete = false;  // with everything; false when a limit ended it
  bool stopped = false;   // by the agent's stop; then nothing else counts
  // One line: why there is none, or, beside one, why a newer definition is not the one that was used.
  STRING error{};
  uint64_t rows = 0;
  uint64_t skipped = 0;
  // Lower-case hexadecimal SHA-256 over what was collected, the same for the same machine; empty
  // when it says nothing about a change.
  std::string applicationsChecksum{}, filesChecksum{};
};

class InventorySource {
 public:
  virtual ~InventorySource() = default;
  virtual InventoryResult collect(StopToken& stop, const InventoryFiles& files) = 0;
};

}  // namespace korvane
