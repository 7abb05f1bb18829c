#include "util/agent_run.h"

#include <utility>

namespace korvane {
namespace {

thread_local AgentRun* enteredRun = nullptr;
std::atomic<AgentRun*> processRun{nullptr};

// Never destroyed: a thread that has entered no run may use it while the process ends.
AgentRun& lastingRun() {
  static const std::shared_ptr<AgentRun>& run = *new std::shared_ptr<AgentRun>(AgentRun::make());
  return *run;
}

}  // namespace

std::shared_ptr<AgentRun> AgentRun::make() {
  return std::shared_ptr<AgentRun>(new AgentRun);
}

AgentRun& AgentRun::current() {
  if (enteredRun) return *enteredRun;
  AgentRun* run = processRun.load(std::memory_order_acquire);
  return run ? *run : lastingRun();
}

void* AgentRun::fill(RunPart which, const std::function<std::shared_ptr<void>()>& make) {
  const std::lock_guard hold(_making);
  if (void* made = slot(which).load(std::memory_order_relaxed)) return made;
  return place(which, make());
}

void* AgentRun::place(RunPart which, std::shared_ptr<void> part) {
  const std::lock_guard hold(_making);
  void* const placed = part.get();
  _owned.push_back({&slot(which), std::move(part)});
  slot(which).store(placed, std::memory_order_release);
  return placed;
}

void AgentRun::keep(std::shared_ptr<void> object) {
  const std::lock_guard hold(_making);
  _owned.push_back({nullptr, std::move(object)});
}

// What a part does at its end, it does in this run.
AgentRun::~AgentRun() {
  AgentRun* const former = std::exchange(enteredRun, this);
  while (!_owned.empty()) {
    const Owned newest = std::move(_owned.back());
    _owned.pop_back();
    if (newest.slot) newest.slot->store(nullptr, std::memory_order_release);
  }
  enteredRun = former == this ? nullptr : former;
}

AgentRunScope::AgentRunScope(std::shared_ptr<AgentRun> run)
    : _run(std::move(run)), _former(std::exchange(enteredRun, _run.get())) {}

AgentRunScope::~AgentRunScope() {
  enteredRun = _former;
}

ProcessRunScope::ProcessRunScope(std::shared_ptr<AgentRun> run)
    : _run(std::move(run)), _former(processRun.exchange(_run.get())) {}

ProcessRunScope::~ProcessRunScope() {
  processRun = _former;
}

}  // namespace korvane
