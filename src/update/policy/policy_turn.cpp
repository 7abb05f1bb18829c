#include "update/policy/policy_turn.h"

#include "agent/thread/exceptions.h"
#include "agent/thread/locks.h"
#include "agent/thread/primitive_holder.h"
#include "agent/thread/stop_token.h"
#include "platform/threading.h"
#include "util/agent_run.h"

namespace korvane {
namespace {

constexpr uint32_t kLookAgainMs = 1000;

class Turn {
 public:
  bool take() {
    const Synchronized hold(_lock);
    if (_busy) return false;
    return _busy = true;
  }
  void giveBack() {
    {
      const Synchronized hold(_lock);
      _busy = false;
    }
    changed().set();
  }
  // Set when somebody should look again; one of those who wait does.
  platform::Event& changed() {
    platform::Event* made = _changed.get([](platform::Threading& threading) {
      return threading.createEvent(/*manualReset=*/false, /*signalled=*/false);
    });
    if (!made) throw ThreadException("PolicyTurn::PolicyTurn()", 8);
    return *made;
  }

 private:
  Win32Mutex _lock;
  bool _busy GUARDED_BY(_lock) = false;
  PrimitiveHolder<platform::Event> _changed;
};

Turn& turn() {
  return AgentRun::current().part<Turn>(RunPart::policyTurn);
}

}  // namespace

PolicyTurn::PolicyTurn() {
  platform::Event& changed = turn().changed();
  const StopCallback stop(shutdownToken(), [&changed] { changed.set(); });
  while (!shutdownToken().requested()) {
    _taken = turn().take();
    if (_taken) return;
    changed.wait(kLookAgainMs);
  }
}

PolicyTurn::~PolicyTurn() {
  if (_taken) turn().giveBack();
}

}  // namespace korvane
