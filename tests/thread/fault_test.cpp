#include <memory>

#include "agent/thread/thread.h"
#include "agent/thread/thread_key.h"
#include "tests/thread/faulty_threading.h"
#include "tests/thread/function_thread.h"

namespace korvane::testing {
namespace {

struct Fault {
  const char* failing;
  const char* method;
  int number;
  // Does what fails; `fail` makes the primitive fail from then on.
  std::function<void(const std::function<void()>& fail)> act;
};

const Fault kFaults[] = {
    {"createThread", "Thread::Thread()", 2,
     [](auto& fail) {
       fail();
       FunctionThread thread([](FunctionThread&) {});
     }},
    {"adoptCurrentThread", "Thread::Thread()", 2,
     [](auto& fail) {
       fail();
       FunctionThread thread{Thread::AdoptCurrent{}};
     }},
    {"setPriority", "Thread::setPriority(ThreadPriority)", 5,
     [](auto& fail) {
       FunctionThread thread([](FunctionThread&) {});
       fail();
       thread.setPriority(Thread::ThreadPriority::lowest);
     }},
    {"set", "ThreadCondition::post()", 15,
     [](auto& fail) {
       ThreadEvent event;
       fail();
       event.post();
     }},
    {"wait", "ThreadCondition::posted()", 19,
     [](auto& fail) {
       ThreadEvent event;
       fail();
       event.posted();
     }},
    {"pulse", "ThreadCondition::pulse()", 16,
     [](auto& fail) {
       ThreadEvent event;
       fail();
       event.pulse();
     }},
    {"reset", "ThreadCondition::reset()", 18,
     [](auto& fail) {
       ThreadEvent event;
       fail();
       event.reset();
     }},
    {"wait", "ThreadCondition::wait()", 8,
     [](auto& fail) {
       ThreadEvent event;
       fail();
       event.wait();
     }},
    {"createEvent", "ThreadCondition::ThreadEvent()", 14,
     [](auto& fail) {
       fail();
       ThreadEvent event;
     }},
    {"createSemaphore", "ThreadCondition::ThreadCondition(RecursiveMutex&)", 11,
     [](auto& fail) {
       RecursiveMutex mutex;
       fail();
       ThreadCondition condition(mutex);
     }},
    {"semaphoreWait", "ThreadCondition::wait()", 8,
     [](auto& fail) {
       RecursiveMutex mutex;
       ThreadCondition condition(mutex);
       fail();
       Synchronized hold(mutex);
       condition.wait();
     }},
    {"createThreadLocalSlot", "ThreadEvent::allocate()", 21,
     [](auto& fail) {
       fail();
       FunctionThread thread([](FunctionThread&) {});
     }},
    {"slotSet", "ThreadEvent::set()", 23,
     [](auto& fail) {
       fail();
       FunctionThread thread([](FunctionThread&) {});
     }},
    {"createMutex", "RecursiveMutex::lock()", 1,
     [](auto& fail) {
       fail();
       FunctionThread thread([](FunctionThread&) {});
     }},
    {"createMutex", "Win32Mutex::tryLock()", 1,
     [](auto& fail) {
       Win32Mutex mutex;
       fail();
       if (mutex.tryLock()) mutex.unlock();
     }},
    {"createEvent", "StopToken::sleepFor()", 8,
     [](auto& fail) {
       StopToken token;
       fail();
       token.sleepFor(1);
     }},
};

TEST(ThreadFaults, NameTheMethodAndTheNumber) {
  for (const Fault& fault : kFaults) {
    SCOPED_TRACE(std::string(fault.failing) + " -> " + fault.method);
    FaultyPlatform platform;
    try {
      fault.act([&] { platform.faults->fail(fault.failing); });
      ADD_FAILURE() << "nothing thrown";
    } catch (const ThreadException& e) {
      EXPECT_EQ(e.method(), fault.method);
      EXPECT_EQ(e.number(), fault.number);
    }
  }
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
