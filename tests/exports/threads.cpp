#include <memory>

#include "outside.h"

using korvane::Thread;
using korvane::UpdateThread;
using korvane::UtilThread;

static_assert(UpdateThread::MAX_RETRY == 10 && UpdateThread::RETRY_INTERVAL == 5);
static_assert(UtilThread::MAX_RETRY == 10 && UtilThread::RETRY_INTERVAL == 5);

// A stop is a request; who deletes a thread waits until it is no longer alive.
template <class AnyThread>
static void endOf(AnyThread& thread) {
  thread.stop();
  while (thread.isAlive()) pauseBriefly();
}

// Every operation of a worker thread is that of its base; the agent deletes it through the base.
static void drive(std::unique_ptr<Thread> thread) {
  expect(!thread->isAlive(), "a thread waits for its start");
  thread->start();
  expect(thread->isAlive(), "a started thread is alive");
  endOf(*thread);
}

template <class Worker>
static void useWorker() {
  korvane::AgentInfo* const info = nullptr;
  Worker never(info);
  never.setPriority(static_cast<Thread::ThreadPriority>(1));
  never.stop();

  auto direct = std::make_unique<Worker>(info);
  void (Worker::*body)() = &Worker::run;
  expect(body != nullptr, "the body is an operation of the class");
  direct->start();
  expect(direct->isAlive(), "start and isAlive are the class's own");
  endOf(*direct);
  drive(std::make_unique<Worker>(info));
}

void useThreads() {
  useWorker<UpdateThread>();
  useWorker<UtilThread>();
}
