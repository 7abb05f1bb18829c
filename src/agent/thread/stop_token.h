// How a stop reaches code that is busy waiting for something else.
//
// A StopToken is set once, by request(), and stays set until reset(). Whoever waits does it with
// sleepFor(), which a stop ends at once; whoever is about to block in something that has its own
// way of being cut short (a transfer, a driver request, a child process, a socket) registers a
// StopCallback that does so. The shutdown token of a run is set by the agent's shutdown
// routine; every thread also has a token of its own (Thread::stopToken).
//
// Threads: everything may be called by any thread. A callback runs on the thread that requests the
// stop, with no lock of its own code to rely on; it must be quick, must not throw (exceptions are
// swallowed), and must not register or remove callbacks of the same token. ~StopCallback returns
// only when the callback is not running.
//
// Errors: sleepFor() throws ThreadException 8 ("StopToken::sleepFor()") when it cannot wait.
// A token needs nothing of the platform until it is used.
//
//   StopCallback interrupt(shutdownToken(), [&] { request.interrupt(); });
//   request.wait(30000);
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>

#include "agent/thread/locks.h"

namespace korvane {

class StopCallback;

class StopToken {
 public:
  StopToken() = default;
  StopToken(const StopToken&) = delete;
  StopToken& operator=(const StopToken&) = delete;

  void request();
  void reset();
  bool requested() const { return _requested.load(std::memory_order_acquire); }

  // Sleeps for that many milliseconds; true when it was cut short, or would have been, by a stop.
  bool sleepFor(uint32_t milliseconds);

 private:
  platform::Event& event();
  friend class StopCallback;
  std::atomic<bool> _requested{false};
  PrimitiveHolder<platform::Event> _event;
  Win32Mutex _lock;
  bool _announced GUARDED_BY(_lock) = false;  // the callbacks have been run since the last reset
  std::list<StopCallback*> _callbacks GUARDED_BY(_lock);
};

class StopCallback {
 public:
  // Registers `action`; runs it at once, on this thread, when the stop was already requested.
  StopCallback(StopToken& token, std::function<void()> action);
  ~StopCallback();
  StopCallback(const StopCallback&) = delete;
  StopCallback& operator=(const StopCallback&) = delete;

 private:
  friend class StopToken;
  StopToken& _token;
  std::function<void()> _action;
};

// The token of this run that the agent's shutdown routine sets.
StopToken& shutdownToken();

}  // namespace korvane
