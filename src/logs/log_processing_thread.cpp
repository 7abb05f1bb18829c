#include "logs/log_processing_thread.h"

#include <algorithm>

#include "config/log_names.h"
#include "eventlog/event_log.h"
#include "util/errors.h"

namespace korvane {
namespace {

constexpr int kErrorPassedOver = 13;

}  // namespace

LogProcessingThread::~LogProcessingThread() = default;

void LogProcessingThread::attach(std::unique_ptr<LogProcessor> processor) {
  processor->setStopToken(stopToken());
  _processors.push_back(std::move(processor));
}

void LogProcessingThread::stop() {
  _running = false;
  Thread::stop();
}

uint32_t LogProcessingThread::cycle() {
  if (!_forwarding.mayForward()) return endCycle();
  for (const auto& processor : _processors) {
    if (stopRequested()) break;
    if (processor->enabled() && processor->tick()) runProcessor(*processor);
  }
  return endCycle();
}

void LogProcessingThread::runProcessor(LogProcessor& processor) {
  try {
    processor.readRecords();
    if (_backOff >= 0) _backOff = processor.writeRecords();
  } catch (const AgentError& error) {
    if (error.code() == kErrorPassedOver) return;
    eventlog::event(EventId::logForwardingDisabled, "LogProcessingThread::run",
                    {logTypeName(processor.type()), error.text()});
    processor.disable();
  }
}

uint32_t LogProcessingThread::endCycle() {
  const uint32_t pause = _backOff < 0 ? kBackOffMs : kCycleMs;
  _backOff = 0;
  return pause;
}

void LogProcessingThread::run() {
  _idsLogSearch.attempt();
  while (_running && !stopRequested()) wait(cycle());
  eventlog::trace("UpdateThread::run", "*****LogProcessing Thread exiting*****");
}

// While the names of the IDS logs are not known, the wait is made of the search's steps. The
// destinations are looked after in all waits.
void LogProcessingThread::wait(uint32_t milliseconds) {
  while (milliseconds > 0) {
    const bool searching = !_idsLogSearch.done();
    const uint32_t step = std::min(milliseconds, searching ? IdsLogSearch::kIntervalMs : kCycleMs);
    if (stopToken().sleepFor(step)) return;
    milliseconds -= step;
    if (searching) _idsLogSearch.attempt();
    for (const auto& processor : _processors) processor->tend();
  }
}

}  // namespace korvane
