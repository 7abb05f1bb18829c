// The thread that forwards logs: once a second it gives its processors their turn, every
// second time each.
//
// Start: after the processors have been attached. Stop: any thread, any number of times; the pause
// between cycles ends at once, a transfer in progress is ended by the shutdown token, and nothing
// of what was read but not delivered is lost: it is read again at the next start. Lifetime: owns
// the processors; what it is made with outlives it; destroy it when it is not alive. Threads:
// attach() and cycle() only before the start, or on the thread itself; the rest by any. Errors: a
// processor that throws AgentError is disabled for good (event 10136), except for code 13, which is
// skipped.
//
//   auto* thread = new LogProcessingThread(forwarding, parts.ids, parts.settings);
//   thread->attach(std::make_unique<LogProcessor>(HIDS_RT_LOG, parts, std::move(destination)));
//   thread->start();
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "agent/thread/thread.h"
#include "logs/forwarding_switch.h"
#include "logs/ids_log_search.h"
#include "logs/log_processor.h"

namespace korvane {

class LogSettings;

class LogProcessingThread : public Thread {
 public:
  // ids: null without the IDS component.
  LogProcessingThread(const ForwardingSwitch& forwarding, HidsInterface* ids, LogSettings& settings)
      : _forwarding(forwarding), _idsLogSearch(ids, settings) {}
  ~LogProcessingThread() override;

  void attach(std::unique_ptr<LogProcessor> processor);
  void stop() override;

  // One cycle; returns how many milliseconds to wait before the next.
  uint32_t cycle();

  static constexpr uint32_t kCycleMs = 1000;
  static constexpr uint32_t kBackOffMs = 10000;

 protected:
  void run() override;

 private:
  void runProcessor(LogProcessor& processor);
  uint32_t endCycle();
  void wait(uint32_t milliseconds);

  const ForwardingSwitch& _forwarding;
  std::vector<std::unique_ptr<LogProcessor>> _processors;
  std::atomic<bool> _running{true};
  int _backOff = 0;  // negative after a failed write
  IdsLogSearch _idsLogSearch;
};

}  // namespace korvane
