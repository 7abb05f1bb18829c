#include "bulk/bulk_log_processing_thread.h"

#include <utility>

#include "bulk/bulk_transfer.h"
#include "config/log_settings.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr uint32_t kMsPerSecond = 1000;

Thread::ThreadPriority priorityNamed(const STRING& name) {
  if (name == "low") return Thread::ThreadPriority::lowest;
  return name == "high" ? Thread::ThreadPriority::highest : Thread::ThreadPriority::normal;
}

}  // namespace

BulkLogProcessingThread::BulkLogProcessingThread(bulk::Parts parts)
    : _parts(std::move(parts)),
      _transfer(std::make_unique<bulk::BulkTransfer>(_parts, [this] { return stopRequested(); })) {}

BulkLogProcessingThread::~BulkLogProcessingThread() = default;

uint32_t BulkLogProcessingThread::cycle() {
  return _transfer->look();
}

void BulkLogProcessingThread::takePriority() {
  const STRING name = _parts.settings.getLogPriority();
  if (name == _priority) return;
  _priority = name;
  setPriority(priorityNamed(name));
}

void BulkLogProcessingThread::run() {
  while (!stopRequested()) {
    takePriority();
    stopToken().sleepFor(cycle() * kMsPerSecond);
  }
}

}  // namespace korvane
