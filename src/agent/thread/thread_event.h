// A manual-reset event with a time-out of its own.
#pragma once

#include <cstdint>
#include <memory>

#include "platform/fwd.h"

namespace korvane {

// Failures are ThreadException with the method texts and numbers given beside each operation.
class ThreadEvent {
 public:
  // timeoutMs: how long wait() waits; platform::kInfinite forever.
  // "ThreadCondition::ThreadEvent()", 14.
  explicit ThreadEvent(uint32_t timeoutMs = platform::kInfinite);
  ~ThreadEvent();

  void post();    // signals; "ThreadCondition::post()", 15
  void pulse();   // releases those that wait now; "ThreadCondition::pulse()", 16
  void reset();   // "ThreadCondition::reset()", 18
  bool posted();  // looks, without waiting; "ThreadCondition::posted()", 19
  // Waits up to the event's time-out; a time-out that expires returns normally.
  // "ThreadCondition::wait()", 8.
  void wait();

 private:
  uint32_t _timeoutMs;
  std::unique_ptr<platform::Event> _event;
};

}  // namespace korvane
