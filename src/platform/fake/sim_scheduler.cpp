#include "platform/fake/sim_scheduler.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "platform/native.h"

namespace korvane::platform {
namespace {

// How often the baton may be passed while the destructor waits for the last threads to end.
constexpr uint64_t kDrainSwitches = 1000000;

thread_local SimThread* currentThread = nullptr;

[[noreturn]] void giveUp(const std::string& why) {
  std::fprintf(stderr, "simulation: %s\n", why.c_str());
  std::abort();
}

}  // namespace

SimScheduler::SimScheduler(uint64_t seed, SimThreading::DeadlockHandler handler)
    : _native(makeNativeThreading()), _handler(std::move(handler)), _random(seed) {
  auto first = std::make_shared<SimThread>();
  first->id = ++_lastId;
  first->baton = _native->createEvent(false, false);
  currentThread = first.get();
  _threads.push_back(std::move(first));
}

SimThread& SimScheduler::self() {
  if (!currentThread) giveUp("called by a thread that it does not know");
  return *currentThread;
}

std::shared_ptr<SimThread> SimScheduler::adopt() {
  auto adopted = std::make_shared<SimThread>();
  adopted->id = self().id;
  return adopted;
}

// SplitMix64 by Sebastiano Vigna.
uint64_t SimScheduler::draw(uint64_t bound) {
  uint64_t z = _random += 0x9E3779B97F4A7C15u;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  return (z ^ (z >> 31)) % bound;
}

SimThread::Wake SimScheduler::block(SimQueue& queue, int64_t timeoutMs, const char* waitsFor,
                                    bool canFail) {
  SimThread& thread = self();
  thread.state = SimThread::State::blocked;
  thread.queue = &queue;
  thread.waitsFor = waitsFor;
  thread.canFail = canFail;
  thread.deadline = timeoutMs == kNever ? kNever : _now + timeoutMs;
  queue.push_back(&thread);
  pass(thread);
  return thread.wake;
}

void SimScheduler::wake(SimThread& thread, SimThread::Wake how) {
  if (thread.queue) thread.queue->remove(&thread);
  thread.queue = nullptr;
  thread.state = SimThread::State::runnable;
  thread.wake = how;
}

void SimScheduler::wakeOne(SimQueue& queue) {
  if (queue.empty()) return;
  wake(**std::next(queue.begin(), static_cast<ptrdiff_t>(draw(queue.size()))),
       SimThread::Wake::signalled);
}

void SimScheduler::wakeAll(SimQueue& queue) {
  while (!queue.empty()) wake(*queue.front(), SimThread::Wake::signalled);
}

void SimScheduler::yield() {
  pass(self());
}

// Gives the baton to a thread that can run and returns when `from` has it again; a thread
// that has ended does not come back.
void SimScheduler::pass(SimThread& from) {
  SimThread& next = choose();
  ++_switches;
  _hash = (_hash ^ next.id ^ static_cast<uint64_t>(_now) << 16) * 1099511628211u;
  if (&next == &from) return;
  const bool comesBack = from.state != SimThread::State::ended;
  next.baton->set();
  if (comesBack) from.baton->wait(kInfinite);
}

SimThread& SimScheduler::choose() {
  for (;;) {
    std::vector<SimThread*> runnable;
    for (const auto& thread : _threads)
      if (thread->state == SimThread::State::runnable) runnable.push_back(thread.get());
    if (!runnable.empty()) return *runnable[draw(runnable.size())];
    if (!advanceTime()) reportDeadlock();
  }
}

// Goes to the earliest deadline and wakes whom it concerns; false when there is none.
bool SimScheduler::advanceTime() {
  int64_t earliest = kNever;
  for (const auto& thread : _threads)
    if (thread->state == SimThread::State::blocked) earliest = std::min(earliest, thread->deadline);
  if (earliest == kNever) return false;
  _now = std::max(_now, earliest);
  for (const auto& thread : _threads)
    if (thread->state == SimThread::State::blocked && thread->deadline <= _now)
      wake(*thread, SimThread::Wake::timedOut);
  return true;
}

std::string SimScheduler::waits() const {
  std::string text;
  for (const auto& thread : _threads)
    text += " thread " + std::to_string(thread->id) + " waits for " + thread->waitsFor + ";";
  return text;
}

void SimScheduler::reportDeadlock() {
  const std::string report = "deadlock:" + waits();
  const bool anyCanFail = std::any_of(_threads.begin(), _threads.end(),
                                      [](const auto& thread) { return thread->canFail; });
  if (!_handler || !anyCanFail) giveUp(report);
  _handler(report);
  for (const auto& thread : _threads)
    if (thread->canFail) wake(*thread, SimThread::Wake::failed);
}

std::shared_ptr<SimThread> SimScheduler::start(const std::shared_ptr<SimScheduler>& keep,
                                               uint32_t stackBytes, std::function<void()> body) {
  reap();
  auto thread = std::make_shared<SimThread>();
  thread->id = ++_lastId;
  thread->baton = _native->createEvent(false, false);
  _threads.push_back(thread);
  thread->native = _native->createThread(
      stackBytes, [keep, thread, body = std::move(body)] { keep->threadMain(*thread, body); });
  if (!thread->native) {
    _threads.pop_back();
    return nullptr;
  }
  yield();
  return thread;
}

void SimScheduler::threadMain(SimThread& thread, const std::function<void()>& body) {
  currentThread = &thread;
  thread.baton->wait(kInfinite);
  body();
  thread.state = SimThread::State::ended;
  wakeAll(thread.joiners);
  const auto known = std::find_if(_threads.begin(), _threads.end(),
                                  [&](const auto& each) { return each.get() == &thread; });
  _ended.push_back(std::move(*known));
  _threads.erase(known);
  pass(thread);
}

void SimScheduler::reap() {
  for (const auto& thread : _ended) thread->native->join(kInfinite);
  _ended.clear();
}

void SimScheduler::drain() {
  SimQueue nobody;
  const uint64_t limit = _switches + kDrainSwitches;
  while (_threads.size() > 1) {
    if (_switches > limit) giveUp("threads are left that do not end:" + waits());
    block(nobody, 1000, "the others to end");
  }
  reap();
  currentThread = nullptr;
}

}  // namespace korvane::platform
