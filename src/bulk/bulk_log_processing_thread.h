// Sends finished logs to the management server in zip archives and keeps the disk limits
// (docs/bulk-logs.md has the steps, bounds and failures).
//
// Start, stop and destruction are those of Thread. A stop ends packing at the next piece of 64 KiB
// and a transfer at once; what is unfinished is found on the disk by the next start. Between looks
// the thread sleeps on its stop token.
// Lifetime: everything in Parts outlives the thread.
// Errors: none leave it; each has its event.
#pragma once

#include <cstdint>
#include <memory>

#include "agent/thread/thread.h"
#include "bulk/bulk_parts.h"

namespace korvane {

namespace bulk {
class BulkTransfer;
}

class BulkLogProcessingThread : public Thread {
 public:
  explicit BulkLogProcessingThread(bulk::Parts parts);
  ~BulkLogProcessingThread() override;

  // One look with all that follows from it; the seconds until the next.
  uint32_t cycle();

 protected:
  void run() override;

 private:
  void takePriority();

  bulk::Parts _parts;
  std::unique_ptr<bulk::BulkTransfer> _transfer;
  STRING _priority;
};

}  // namespace korvane
