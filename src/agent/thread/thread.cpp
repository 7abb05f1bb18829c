#include "agent/thread/thread.h"

#include <atomic>
#include <utility>

#include "agent/thread/run_threading.h"
#include "agent/thread/thread_control.h"
#include "agent/thread/thread_key.h"
#include "platform/threading.h"
#include "util/agent_run.h"

namespace korvane {
namespace {

void forgetCurrent(ThreadKey& key) noexcept {
  try {
    key.set(nullptr);
  } catch (const ThreadException&) {
  }
}

}  // namespace

Thread::Thread(uint32_t stackBytes)
    : _control(std::make_shared<Control>(stackBytes ? stackBytes : kDefaultStackBytes)) {
  auto native = threadingOfThisRun().createThread(_control->stackBytes,
                                                  [this, control = _control, run = thisRun()] {
                                                    const AgentRunScope inRun(run);
                                                    wrapper(*this, control);
                                                  });
  if (!native) throw ThreadException("Thread::Thread()", 2);
  try {
    _control->identify(std::move(native), /*isAdopted=*/false);
    _control->aliveEvent.wait();
    if (_control->failure) std::rethrow_exception(_control->failure);
  } catch (...) {
    // The thread has nothing to do; it is gone before the object is.
    const Control::Parting parting = _control->part();
    if (parting.join) parting.native->join(platform::kInfinite);
    throw;
  }
}

Thread::Thread(AdoptCurrent) : _control(std::make_shared<Control>(0)) {
  auto native = threadingOfThisRun().adoptCurrentThread();
  if (!native) throw ThreadException("Thread::Thread()", 2);
  _control->identify(std::move(native), /*isAdopted=*/true);
  threadKeyOfThisRun().set(this);
}

Thread::~Thread() {
  try {
    const Control::Parting parting = _control->part();
    if (parting.abandoned) ++abandonedThreadsOfThisRun();
    if (parting.join) parting.native->join(platform::kInfinite);
    if (parting.adopted && current() == this) forgetCurrent(threadKeyOfThisRun());
  } catch (const ThreadException&) {
  }
}

void Thread::wrapper(Thread& self, const std::shared_ptr<Control>& control) noexcept {
  ThreadKey* key = nullptr;
  try {
    key = &threadKeyOfThisRun();
    key->set(&self);
  } catch (...) {
    control->failure = std::current_exception();
  }
  const bool registered = !control->failure;
  try {
    control->aliveEvent.post();
  } catch (const ThreadException&) {
    // The constructor waits on; ending the process here would end the host.
  }
  if (registered) runBody(self, *control);
  if (key) forgetCurrent(*key);
  if (control->finish()) delete &self;
}

void Thread::runBody(Thread& self, Control& control) {
  try {
    control.startEvent.wait();
    if (control.stopRequested()) return;
    try {
      control.setPriority(ThreadPriority::normal);
    } catch (const ThreadException&) {
      // A body at another priority is better than none.
    }
    self.run();
  } catch (const ThreadDeathException&) {
  } catch (const ThreadException&) {
  } catch (...) {
  }
}

// These three keep their share of the state: the thread that they let go on may end and delete the
// object before they have returned.
void Thread::stop() {
  const std::shared_ptr<Control> control = _control;
  control->stopToken.request();
  if (control->stop()) throw ThreadDeathException("Thread::stop()", 6);
}

void Thread::start() {
  const std::shared_ptr<Control> control = _control;
  control->start();
}

void Thread::dispose(Thread* thread) {
  if (!thread) return;
  const std::shared_ptr<Control> control = thread->_control;
  if (control->leaveToItself())
    ++abandonedThreadsOfThisRun();
  else
    delete thread;
}

bool Thread::stopRequested() const {
  return _control->stopToken.requested();
}

StopToken& Thread::stopToken() {
  return _control->stopToken;
}

void Thread::setPriority(ThreadPriority priority) {
  _control->setPriority(priority);
}

bool Thread::isAlive() const {
  return _control->isAlive();
}

bool Thread::waitEnded(uint32_t timeoutMs) const {
  if (!isAlive()) return true;
  if (platform::NativeThread* native = _control->joinable()) native->join(timeoutMs);
  return !isAlive();
}

void Thread::setSelfDelete() {
  _control->setSelfDelete();
}

RecursiveMutex& Thread::lock() {
  return _control->lock;
}

ThreadCondition& Thread::condition() {
  return _control->condition;
}

bool Thread::waitOnCondition(uint32_t timeoutMs) NO_THREAD_SAFETY_ANALYSIS {
  return _control->wait(timeoutMs);
}

Thread* Thread::current() {
  return threadKeyOfThisRun().get();
}

int Thread::abandoned() {
  return abandonedThreadsOfThisRun();
}

}  // namespace korvane
