#include "agent/worker_threads.h"

#include <exception>

#include "agent/stop_step.h"
#include "agent/thread/stop_token.h"
#include "agent/thread/thread.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

struct StopStep {
  Worker worker;
  const char* tag;
  const char* line;
};

constexpr StopStep kStopOrder[] = {
    {Worker::appData, "MainThread", "Stopping AppData Processing Thread"},
    {Worker::genericAppData, "MainThread", "Stopping Generic AppData Processing Thread"},
    {Worker::componentUpdate, "MainThread", "Stopping Component Update Thread"},
    {Worker::comm, "KorvaneAgent", "Stopping Comm Thread"},
    {Worker::util, "KorvaneAgent", "Stopping Util Thread"},
    {Worker::update, "KorvaneAgent", "Stopping Update Thread"},
    {Worker::logProcessing, "KorvaneAgent", "Stopping Log Processing Thread"},
    {Worker::bulkLogProcessing, "KorvaneAgent", "Stopping Bulk Log Processing Thread"},
};

constexpr Worker kStandardWaitOrder[] = {
    Worker::logProcessing, Worker::update,         Worker::bulkLogProcessing,
    Worker::appData,       Worker::genericAppData, Worker::componentUpdate,
};

constexpr Worker kOtherWaitOrder[] = {
    Worker::logProcessing,     Worker::comm,    Worker::util,           Worker::update,
    Worker::bulkLogProcessing, Worker::appData, Worker::genericAppData, Worker::componentUpdate,
};

constexpr Worker kDeleteOrder[] = {
    Worker::comm,
    Worker::util,
    Worker::update,
    Worker::logProcessing,
    Worker::bulkLogProcessing,
    Worker::appData,
    Worker::genericAppData,
    Worker::componentUpdate,
};

constexpr int kFirstWaitCount = 30;
constexpr uint32_t kWaitStepMs = 1000;

size_t indexOf(Worker worker) {
  return static_cast<size_t>(worker);
}

}  // namespace

WorkerThreads::WorkerThreads() {
  const Synchronized made(_lock);
}

WorkerThreads::~WorkerThreads() {
  remove();
}

void WorkerThreads::start(Worker worker, const std::function<Thread*()>& make) {
  Synchronized hold(_lock);
  Thread*& slot = _slots[indexOf(worker)];
  if (slot || shutdownToken().requested()) return;
  try {
    slot = make();
    if (slot) slot->start();
  } catch (const std::exception&) {
    // The slot stays as it is: empty, or with a thread that never began and that the
    // shutdown removes.
  }
}

void WorkerThreads::requestStops() {
  for (const StopStep& step : kStopOrder) {
    Synchronized hold(_lock);
    Thread* thread = _slots[indexOf(step.worker)];
    if (!thread) continue;
    stopStep(step.line, [thread] { thread->stop(); });
    eventlog::trace(step.tag, step.line);
  }
}

int WorkerThreads::waitForEnd(bool standardAgent) {
  const auto order = standardAgent ? std::span<const Worker>(kStandardWaitOrder)
                                   : std::span<const Worker>(kOtherWaitOrder);
  int counter = kFirstWaitCount;
  while (counter >= 0) {
    Thread* alive = firstAlive(order);
    if (!alive) break;
    eventlog::trace("MainThread", "Waiting for thread to exit");
    alive->waitEnded(kWaitStepMs);
    --counter;
  }
  eventlog::trace("MainThread", "all threads cleaned up %d", counter);
  return counter;
}

Thread* WorkerThreads::firstAlive(std::span<const Worker> order) {
  Synchronized hold(_lock);
  for (const Worker worker : order) {
    Thread* thread = _slots[indexOf(worker)];
    if (thread && thread->isAlive()) return thread;
  }
  return nullptr;
}

void WorkerThreads::remove() {
  Synchronized hold(_lock);
  for (const Worker worker : kDeleteOrder) {
    Thread*& slot = _slots[indexOf(worker)];
    stopStep("deletion of a thread", [slot] { Thread::dispose(slot); });
    slot = nullptr;
  }
}

}  // namespace korvane
