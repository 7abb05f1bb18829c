// One run of an agent, as the static classes and singletons of the system find it.
//
// What those share (the settings, the connection to the server, the stop token, counters) lies in
// parts of a run, never in variables of the process: so several agents live in one process, a start
// finds nothing of an earlier one, and its end takes everything along. A part is made when it is
// first asked for; parts go in the reverse order, when the last owner of the run lets it go.
//
// Which run: the one that the calling thread has entered (AgentRunScope); a Thread enters the run
// that it was made in and owns a share of it, so that one that is left behind keeps what it may
// still reach. A thread that has entered none, such as one of the host's, finds the process's run:
// the agent's that startAgent runs, or else one that is never destroyed.
//
// Only the classes and functions that keep a part here ask for the current run, and the composition
// root, which makes it. Everything else is handed what it uses.
//
// Threads: any, at any time. A part's constructor may ask for other parts, not for itself; it must
// not wait.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace korvane {

enum class RunPart : uint8_t {
  platform,
  ownLog,
  stopToken,
  threadKey,
  abandonedThreads,
  installRoot,
  serviceType,
  settings,
  connection,
  driver,
  translator,
  applicationData,
  policy,
  content,
  logRules,
  shared,
  count,
};

class AgentRun : public std::enable_shared_from_this<AgentRun> {
 public:
  // With nothing in it; owned by shared pointers alone.
  static std::shared_ptr<AgentRun> make();
  ~AgentRun();
  AgentRun(const AgentRun&) = delete;
  AgentRun& operator=(const AgentRun&) = delete;

  static AgentRun& current();

  // The part, made by T's default constructor when it is not there yet. One T for each part.
  template <class T>
  T& part(RunPart which) {
    if (void* made = slot(which).load(std::memory_order_acquire)) return *static_cast<T*>(made);
    return *static_cast<T*>(fill(which, [] { return std::make_shared<T>(); }));
  }
  // The part, or null when nobody has asked for it.
  template <class T>
  T* existing(RunPart which) {
    return static_cast<T*>(slot(which).load(std::memory_order_acquire));
  }
  // Puts a part in its place, before anybody asks for it or instead of another, which stays
  // until the end.
  template <class T>
  void put(RunPart which, std::shared_ptr<T> part) {
    place(which, std::move(part));
  }
  // Keeps an object for as long as there is the run.
  void keep(std::shared_ptr<void> object);

 private:
  using Slot = std::atomic<void*>;

  AgentRun() = default;
  Slot& slot(RunPart which) { return _slots[static_cast<size_t>(which)]; }
  void* fill(RunPart which, const std::function<std::shared_ptr<void>()>& make);
  void* place(RunPart which, std::shared_ptr<void> part);

  std::array<Slot, static_cast<size_t>(RunPart::count)> _slots{};
  struct Owned {
    Slot* slot = nullptr;  // of a part
    std::shared_ptr<void> object;
  };
  std::recursive_mutex _making;
  std::vector<Owned> _owned;  // under _making; the newest last
};

// Makes a run the calling thread's own for a scope. Scopes nest.
class AgentRunScope {
 public:
  explicit AgentRunScope(std::shared_ptr<AgentRun> run);
  ~AgentRunScope();
  AgentRunScope(const AgentRunScope&) = delete;
  AgentRunScope& operator=(const AgentRunScope&) = delete;

 private:
  std::shared_ptr<AgentRun> _run;
  AgentRun* const _former;
};

// Makes a run the process's for a scope. One at a time; nested ones go in the reverse order. No
// thread that has entered no run may be at work in it when the scope ends.
class ProcessRunScope {
 public:
  explicit ProcessRunScope(std::shared_ptr<AgentRun> run);
  ~ProcessRunScope();
  ProcessRunScope(const ProcessRunScope&) = delete;
  ProcessRunScope& operator=(const ProcessRunScope&) = delete;

 private:
  std::shared_ptr<AgentRun> _run;
  AgentRun* const _former;
};

}  // namespace korvane
