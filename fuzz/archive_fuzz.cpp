// Zip archives: the checks, then unpacking in memory. What is unpacked must lie below the target.
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "archive/unpacking.h"
#include "platform/fake/manual_clock.h"
#include "platform/fake/memory_files.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  korvane::platform::ManualClock clock;
  korvane::platform::MemoryFiles files(clock);
  korvane::archive::Limits limits;
  limits.totalBytes = 4 * 1024 * 1024;
  korvane::archive::Refusal refusal;
  const bool unpacked = korvane::archive::unpack(
      files, "fuzz", {reinterpret_cast<const char*>(data), size}, "/t", limits, refusal);
  if (unpacked != (refusal.fault == korvane::archive::Fault::none)) std::abort();
  for (const std::string& path : files.paths())
    if (!unpacked || !path.starts_with("/t/")) std::abort();
  return 0;
}
