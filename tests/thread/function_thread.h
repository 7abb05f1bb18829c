// A Thread whose body is a function, and a bounded wait for a thread's end.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <utility>

#include "agent/thread/thread.h"

namespace korvane::testing {

class FunctionThread : public Thread {
 public:
  explicit FunctionThread(std::function<void(FunctionThread&)> body, uint32_t stackBytes = 0)
      : Thread(stackBytes), _body(std::move(body)) {}
  explicit FunctionThread(AdoptCurrent adopt) : Thread(adopt) {}
  ~FunctionThread() override {
    if (onDestroyed) onDestroyed();
  }

  std::function<void()> onDestroyed;
  using Thread::lock;
  using Thread::waitOnCondition;

 protected:
  void run() override { _body(*this); }

 private:
  std::function<void(FunctionThread&)> _body;
};

// True once `condition` holds; gives up after about half a minute.
inline bool eventually(const std::function<bool()>& condition) {
  StopToken never;
  for (int i = 0; i < 30000; ++i) {
    if (condition()) return true;
    never.sleepFor(1);
  }
  return condition();
}

inline bool ends(const Thread& thread) {
  return eventually([&] { return !thread.isAlive(); });
}

}  // namespace korvane::testing
