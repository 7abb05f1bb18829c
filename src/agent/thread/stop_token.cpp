#include "agent/thread/stop_token.h"

#include <utility>

#include "agent/thread/exceptions.h"
#include "platform/threading.h"

namespace korvane {

using platform::WaitResult;

namespace {

// One that throws all the same must not keep the others from being run.
void run(const std::function<void()>& action) noexcept {
  try {
    action();
  } catch (...) {
  }
}

}  // namespace

void StopToken::request() {
  _requested.store(true, std::memory_order_release);
  Synchronized hold(_lock);
  if (_announced) return;
  _announced = true;
  if (platform::Event* sleepers = _event.existing()) sleepers->set();
  for (StopCallback* callback : _callbacks) run(callback->_action);
}

void StopToken::reset() {
  Synchronized hold(_lock);
  _announced = false;
  _requested.store(false, std::memory_order_release);
  if (platform::Event* sleepers = _event.existing()) sleepers->reset();
}

bool StopToken::sleepFor(uint32_t milliseconds) {
  if (requested()) return true;
  platform::Event& stop = event();
  // An event made after the request was announced is not set by it.
  if (requested()) return true;
  const WaitResult result = stop.wait(milliseconds);
  if (result != WaitResult::signalled && result != WaitResult::timedOut)
    throw ThreadException("StopToken::sleepFor()", 8);
  return requested();
}

platform::Event& StopToken::event() {
  Synchronized hold(_lock);
  platform::Event* made = _event.get([](platform::Threading& threading) {
    return threading.createEvent(/*manualReset=*/true, /*signalled=*/false);
  });
  if (!made) throw ThreadException("StopToken::sleepFor()", 8);
  return *made;
}

StopCallback::StopCallback(StopToken& token, std::function<void()> action)
    : _token(token), _action(std::move(action)) {
  Synchronized hold(_token._lock);
  _token._callbacks.push_back(this);
  if (_token._announced) run(_action);
}

StopCallback::~StopCallback() {
  Synchronized hold(_token._lock);
  _token._callbacks.remove(this);
}

}  // namespace korvane
