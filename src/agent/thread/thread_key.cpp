#include "agent/thread/thread_key.h"

#include "agent/thread/exceptions.h"
#include "agent/thread/run_threading.h"
#include "platform/threading.h"

namespace korvane {

ThreadKey::ThreadKey() : _slot(threadingOfThisRun().createThreadLocalSlot()) {
  if (!_slot) throw ThreadException("ThreadEvent::allocate()", 21);
}

ThreadKey::~ThreadKey() = default;

Thread* ThreadKey::get() const {
  return static_cast<Thread*>(_slot->get());
}

void ThreadKey::set(Thread* thread) {
  if (!_slot->set(thread)) throw ThreadException("ThreadEvent::set()", 23);
}

}  // namespace korvane
