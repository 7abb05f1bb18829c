#include "update/policy/policy_turn.h"

#include "agent/thread/exceptions.h"
#include "agent/thread/stop_token.h"
#include "platform/threading.h"

namespace korvane {
namespace {

constexpr uint32_t kLookAgainMs = 1000;

}  // namespace

bool PolicyTurns::take() {
  const Synchronized hold(_lock);
  if (_busy) return false;
  return _busy = true;
}

void PolicyTurns::release() {
  {
    const Synchronized hold(_lock);
    _busy = false;
  }
  changed().set();
}

platform::Event& PolicyTurns::changed() {
  platform::Event* made = _changed.get([](platform::Threading& threading) {
    return threading.createEvent(/*manualReset=*/false, /*signalled=*/false);
  });
  if (!made) throw ThreadException("PolicyTurn::PolicyTurn()", 8);
  return *made;
}

PolicyTurn::PolicyTurn(PolicyTurns& turns, StopToken& stop) : _turns(turns) {
  platform::Event& changed = turns.changed();
  const StopCallback onStop(stop, [&changed] { changed.set(); });
  while (!stop.requested()) {
    _taken = turns.take();
    if (_taken) return;
    changed.wait(kLookAgainMs);
  }
}

PolicyTurn::~PolicyTurn() {
  if (_taken) _turns.release();
}

}  // namespace korvane
