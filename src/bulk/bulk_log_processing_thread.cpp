#include "bulk/bulk_log_processing_thread.h"

#include <new>
#include <utility>

#include "bulk/bulk_transfer.h"
#include "config/log_settings.h"
#include "eventlog/event_log.h"
#include "util/errors.h"

namespace korvane {
namespace {

constexpr char kThreadTag[] = "BulkLogProcessingThread";
constexpr uint32_t kMsPerSecond = 1000;
constexpr uint32_t kSecondsAfterError = 60;

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
  try {
    return _transfer->look();
  } catch (const AgentError& error) {
    eventlog::trace(kThreadTag, "A look at the logs ended: %s", error.what());
  } catch (const std::bad_alloc&) {
    eventlog::trace(kThreadTag, "A look at the logs ended: out of memory");
  }
  return kSecondsAfterError;
}

void BulkLogProcessingThread::takePriority() {
  const STRING name = _parts.settings.getLogPriority();
  if (name == _priority) return;
  _priority = name;
  try {
    setPriority(priorityNamed(name));
  } catch (const ThreadException&) {
    // Going up again takes privileges on some systems.
    eventlog::trace(kThreadTag, "The system refuses the priority %s", name);
  }
}

void BulkLogProcessingThread::run() {
  while (!stopRequested()) {
    takePriority();
    stopToken().sleepFor(cycle() * kMsPerSecond);
  }
}

}  // namespace korvane
