// Whoever collects the inventory of this machine, for the thread that delivers it.
//
// Used by one thread. A collection ends soon after the agent's stop was requested. What cannot be
// collected is an outcome; nothing but std::bad_alloc is thrown.
#pragma once

#include <cstdint>
#include <string>

#include "util/string.h"

namespace korvane {

struct InventoryFiles {
  STRING definition;    // full path
  STRING definitionV2;  // full path, or empty
  STRING output;        // where the inventory goes, as XML
  STRING shortcuts;     // where shortcuts go, when the definition asks for them
};

struct InventoryResult {
  bool complete = false;
  bool stopped = false;  // by the agent's stop; then nothing else counts
  STRING error;          // of one that is not complete: one line
  bool definitionRefused = false;
  uint64_t rows = 0;
  uint64_t skipped = 0;
  // Lower-case hexadecimal SHA-256 over what was collected, the same for the same machine.
  std::string applicationsChecksum, filesChecksum;
};

class InventorySource {
 public:
  virtual ~InventorySource() = default;
  virtual InventoryResult collect(const InventoryFiles& files) = 0;
};

}  // namespace korvane
