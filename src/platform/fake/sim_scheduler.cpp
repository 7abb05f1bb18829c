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
  first->context = SimContext::ofCaller(*_native);
  add(first);
  currentThread = first.get();
}

void SimScheduler::add(const std::shared_ptr<SimThread>& thread) {
  thread->id = ++_lastId;
  _threads[thread->id] = thread;
  makeRunnable(*thread);
}

void SimScheduler::makeRunnable(SimThread& thread) {
  thread.state = SimThread::State::runnable;
  thread.place = _runnable.size();
  _runnable.push_back(&thread);
}

void SimScheduler::notRunnable(SimThread& thread) {
  _runnable.back()->place = thread.place;
  _runnable[thread.place] = _runnable.back();
  _runnable.pop_back();
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

uint64_t SimScheduler::draw(uint64_t bound) {
  return _random.next() % bound;
}

SimThread::Wake SimScheduler::block(SimQueue& queue, int64_t timeoutMs, const char* waitsFor,
                                    bool canFail) {
  SimThread& thread = self();
  notRunnable(thread);
  thread.state = SimThread::State::blocked;
  thread.queue = &queue;
  thread.waitsFor = waitsFor;
  thread.canFail = canFail;
  thread.deadline = timeoutMs == kNever ? kNever : _now + timeoutMs;
  if (thread.deadline != kNever) _deadlines[{thread.deadline, thread.id}] = &thread;
  queue.push_back(&thread);
  pass(thread);
  return thread.wake;
}

void SimScheduler::wake(SimThread& thread, SimThread::Wake how) {
  std::erase(*thread.queue, &thread);
  thread.queue = nullptr;
  if (thread.deadline != kNever) _deadlines.erase({thread.deadline, thread.id});
  thread.wake = how;
  makeRunnable(thread);
}

void SimScheduler::wakeOne(SimQueue& queue) {
  if (!queue.empty()) wake(*queue[draw(queue.size())], SimThread::Wake::signalled);
}

void SimScheduler::wakeAll(SimQueue& queue) {
  while (!queue.empty()) wake(*queue.front(), SimThread::Wake::signalled);
}

void SimScheduler::yield() {
  pass(self());
}

void SimScheduler::maybeYield() {
  SimThread& thread = self();
  if (_yieldOnceIn == 1 || draw(_yieldOnceIn) == 0) pass(thread);
}

// Gives the baton to a thread that can run and returns when `from` has it again.
void SimScheduler::pass(SimThread& from) {
  SimThread& next = choose();
  if (&next == &from) return;
  from.context->switchTo(*next.context);
}

SimThread& SimScheduler::choose() {
  while (_runnable.empty())
    if (!advanceTime()) reportDeadlock();
  SimThread& next = *_runnable[draw(_runnable.size())];
  ++_switches;
  _hash = (_hash ^ next.id ^ static_cast<uint64_t>(_now) << 16) * 1099511628211u;
  return next;
}

// Goes to the earliest deadline and wakes whom it concerns; false when there is none.
bool SimScheduler::advanceTime() {
  if (_deadlines.empty()) return false;
  _now = std::max(_now, _deadlines.begin()->first.first);
  while (!_deadlines.empty() && _deadlines.begin()->first.first <= _now)
    wake(*_deadlines.begin()->second, SimThread::Wake::timedOut);
  return true;
}

std::string SimScheduler::waits() const {
  std::string text;
  for (const auto& [id, thread] : _threads)
    text += " thread " + std::to_string(id) + " waits for " + thread->waitsFor + ";";
  return text;
}

void SimScheduler::reportDeadlock() {
  const std::string report = "deadlock:" + waits();
  const bool anyCanFail = std::any_of(_threads.begin(), _threads.end(),
                                      [](const auto& each) { return each.second->canFail; });
  if (!_handler || !anyCanFail) giveUp(report);
  _handler(report);
  for (const auto& [id, thread] : _threads)
    if (thread->canFail) wake(*thread, SimThread::Wake::failed);
}

std::shared_ptr<SimThread> SimScheduler::start(const std::shared_ptr<SimScheduler>& keep,
                                               uint32_t stackBytes, std::function<void()> body) {
  reap();
  auto thread = std::make_shared<SimThread>();
  thread->context = SimContext::make(*_native, stackBytes,
                                     [keep, thread, body = std::move(body)]() -> SimContext& {
                                       return *keep->threadMain(*thread, body).context;
                                     });
  if (!thread->context) return nullptr;
  add(thread);
  yield();
  return thread;
}

// Gives the thread that has the baton next.
SimThread& SimScheduler::threadMain(SimThread& thread, const std::function<void()>& body) {
  currentThread = &thread;
  body();
  notRunnable(thread);
  thread.state = SimThread::State::ended;
  wakeAll(thread.joiners);
  const auto known = _threads.find(thread.id);
  _ended.push_back(std::move(known->second));
  _threads.erase(known);
  return choose();
}

void SimScheduler::reap() {
  for (const auto& thread : _ended) thread->context->join();
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
