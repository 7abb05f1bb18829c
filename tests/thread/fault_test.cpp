#include <memory>

#include "agent/thread/thread.h"
#include "agent/thread/thread_key.h"
#include "tests/thread/faulty_threading.h"
#include "tests/thread/function_thread.h"

namespace korvane::testing {
namespace {

using Event = ThreadEvent;

void makeThread() {
  FunctionThread thread([](FunctionThread&) {});
}

// What the failure of a primitive becomes; `prepared` is made before it fails.
template <class Prepared>
void expectFault(const char* failing, const char* method, int number, void (*act)(Prepared&)) {
  SCOPED_TRACE(std::string(failing) + " -> " + method);
  FaultyPlatform platform;
  Prepared prepared;
  platform.faults->fail(failing);
  try {
    act(prepared);
    ADD_FAILURE() << "nothing thrown";
  } catch (const ThreadException& e) {
    EXPECT_EQ(e.method(), method);
    EXPECT_EQ(e.number(), number);
  }
}

struct Nothing {};
struct Waiting {
  RecursiveMutex mutex;
  ThreadCondition condition{mutex};
};
struct Made : FunctionThread {
  Made() : FunctionThread([](FunctionThread&) {}) {}
};

TEST(ThreadFaults, NameTheMethodAndTheNumber) {
  using N = Nothing;
  expectFault<N>("createThread", "Thread::Thread()", 2, [](N&) { makeThread(); });
  expectFault<N>("adoptCurrentThread", "Thread::Thread()", 2,
                 [](N&) { FunctionThread thread{Thread::AdoptCurrent{}}; });
  expectFault<N>("createThreadLocalSlot", "ThreadEvent::allocate()", 21, [](N&) { makeThread(); });
  expectFault<N>("slotSet", "ThreadEvent::set()", 23, [](N&) { makeThread(); });
  expectFault<N>("createMutex", "RecursiveMutex::lock()", 1, [](N&) { makeThread(); });
  expectFault<N>("createEvent", "ThreadCondition::ThreadEvent()", 14, [](N&) { Event event; });
  expectFault<RecursiveMutex>("createSemaphore",
                              "ThreadCondition::ThreadCondition(RecursiveMutex&)", 11,
                              [](RecursiveMutex& mutex) { ThreadCondition made(mutex); });
  expectFault<Win32Mutex>("createMutex", "Win32Mutex::lock()", 1,
                          [](Win32Mutex& mutex) { const Synchronized hold(mutex); });
  expectFault<StopToken>("createEvent", "StopToken::sleepFor()", 8,
                         [](StopToken& token) { token.sleepFor(1); });
  expectFault<Made>("setPriority", "Thread::setPriority(ThreadPriority)", 5,
                    [](Made& thread) { thread.setPriority(Thread::ThreadPriority::lowest); });
  expectFault<Event>("set", "ThreadCondition::post()", 15, [](Event& event) { event.post(); });
  expectFault<Event>("wait", "ThreadCondition::posted()", 19, [](Event& event) { event.posted(); });
  expectFault<Event>("pulse", "ThreadCondition::pulse()", 16, [](Event& event) { event.pulse(); });
  expectFault<Event>("reset", "ThreadCondition::reset()", 18, [](Event& event) { event.reset(); });
  expectFault<Event>("wait", "ThreadCondition::wait()", 8, [](Event& event) { event.wait(); });
  expectFault<Waiting>("semaphoreWait", "ThreadCondition::wait()", 8, [](Waiting& waiting) {
    Synchronized hold(waiting.mutex);
    waiting.condition.wait();
  });
}

TEST(ThreadFaults, AFailedBroadcastLeavesTheConditionUsable) {
  FaultyPlatform platform;
  RecursiveMutex mutex;
  ThreadCondition condition(mutex);
  bool waiting = false;
  FunctionThread waiter([&](FunctionThread&) {
    Synchronized hold(mutex);
    waiting = true;
    condition.wait();
  });
  waiter.start();
  ASSERT_TRUE(eventually([&] {
    Synchronized hold(mutex);
    return waiting;
  }));
  {
    Synchronized hold(mutex);
    platform.faults->fail("release");
    try {
      condition.broadcast();
      ADD_FAILURE() << "nothing thrown";
    } catch (const ThreadException& e) {
      EXPECT_EQ(e.method(), "ThreadCondition::broadcast()");
      EXPECT_EQ(e.number(), 13);
    }
    platform.faults->heal();
    condition.broadcast();
  }
  EXPECT_TRUE(ends(waiter));
}

TEST(ThreadFaults, ABodyRunsAtWhateverPriorityTheSystemLeavesIt) {
  FaultyPlatform platform;
  bool ran = false;
  FunctionThread thread([&](FunctionThread&) { ran = true; });
  platform.faults->fail("setPriority");
  thread.start();
  ASSERT_TRUE(ends(thread));
  EXPECT_TRUE(ran);
  EXPECT_THROW(thread.setPriority(Thread::ThreadPriority::normal), ThreadException);
}

}  // namespace
}  // namespace korvane::testing
