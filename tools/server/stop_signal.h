// Tells every thread of the server to stop: a file descriptor that becomes readable once and stays
// so, and an interruptible pause. Owned by the program, outlives every listener. Thread-safe.
#pragma once

#include <atomic>
#include <chrono>

namespace korvane::server {

class StopSignal {
 public:
  StopSignal();
  ~StopSignal();
  StopSignal(const StopSignal&) = delete;
  StopSignal& operator=(const StopSignal&) = delete;

  void set();
  bool isSet() const { return _set; }
  int descriptor() const { return _descriptor; }

  // Waits until `descriptor` has one of `events` (POLLIN, POLLOUT); false after `limit` and at a
  // stop.
  bool waitFor(int descriptor, short events, std::chrono::milliseconds limit) const;
  // False when a stop ended the pause.
  bool pause(std::chrono::milliseconds length) const;

 private:
  int _descriptor;
  std::atomic<bool> _set = false;
};

}  // namespace korvane::server
