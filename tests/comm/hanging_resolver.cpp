#include "tests/comm/hanging_resolver.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string_view>

namespace korvane::tests {
namespace {

struct State {
  std::mutex mutex;
  std::condition_variable changed;
  std::string name;  // empty: nothing hangs
  int hanging = 0;
};
State& state() {
  static State& one = *new State;
  return one;
}

}  // namespace

bool HangingResolver::hang(const char* host) {
  if (host && std::string_view(host).ends_with(".invalid")) return true;
  std::unique_lock hold(state().mutex);
  if (!host || state().name.empty() || state().name != host) return false;
  ++state().hanging;
  state().changed.notify_all();
  state().changed.wait(hold, [] { return state().name.empty(); });
  --state().hanging;
  state().changed.notify_all();
  return true;
}

HangingResolver::HangingResolver(const std::string& name) {
  std::lock_guard hold(state().mutex);
  state().name = name;
}

HangingResolver::~HangingResolver() {
  std::unique_lock hold(state().mutex);
  state().name.clear();
  state().changed.notify_all();
  state().changed.wait(hold, [] { return state().hanging == 0; });
}

bool HangingResolver::waitUntilAsked() {
  std::unique_lock hold(state().mutex);
  return state().changed.wait_for(hold, std::chrono::seconds(20),
                                  [] { return state().hanging > 0; });
}

}  // namespace korvane::tests
