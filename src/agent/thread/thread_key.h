// A thread-local slot that maps each operating-system thread to its Thread object.
#pragma once

#include <memory>

#include "platform/fwd.h"

namespace korvane {

class Thread;

class ThreadKey {
 public:
  // ThreadException "ThreadEvent::allocate()", 21 when no slot can be had.
  ThreadKey();
  ~ThreadKey();
  Thread* get() const;
  // ThreadException "ThreadEvent::set()", 23.
  void set(Thread* thread);

 private:
  std::unique_ptr<platform::ThreadLocalSlot> _slot;
};

}  // namespace korvane
