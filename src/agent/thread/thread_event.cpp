#include "agent/thread/thread_event.h"

#include "agent/thread/exceptions.h"
#include "agent/thread/run_threading.h"
#include "platform/threading.h"

namespace korvane {

using platform::WaitResult;

ThreadEvent::ThreadEvent(uint32_t timeoutMs)
    : _timeoutMs(timeoutMs), _event(threadingOfThisRun().createEvent(true, false)) {
  if (!_event) throw ThreadException("ThreadCondition::ThreadEvent()", 14);
}

ThreadEvent::~ThreadEvent() = default;

void ThreadEvent::post() {
  if (!_event->set()) throw ThreadException("ThreadCondition::post()", 15);
}

void ThreadEvent::pulse() {
  if (!_event->pulse()) throw ThreadException("ThreadCondition::pulse()", 16);
}

void ThreadEvent::reset() {
  if (!_event->reset()) throw ThreadException("ThreadCondition::reset()", 18);
}

bool ThreadEvent::posted() {
  const WaitResult result = _event->wait(0);
  if (result == WaitResult::signalled) return true;
  if (result == WaitResult::timedOut) return false;
  throw ThreadException("ThreadCondition::posted()", 19);
}

void ThreadEvent::wait() {
  const WaitResult result = _event->wait(_timeoutMs);
  if (result != WaitResult::signalled && result != WaitResult::timedOut)
    throw ThreadException("ThreadCondition::wait()", 8);
}

}  // namespace korvane
