#include "update/component_update_thread.h"

#include "eventlog/event_log.h"
#include "platform/clock.h"

namespace korvane {
namespace {

using Outcome = ContentPackage::Outcome;

constexpr char kComponentSource[] = "ComponentUpdateThread";
constexpr uint32_t kComponentCycleMs = 1000;

}  // namespace

ComponentUpdateThread::ComponentUpdateThread(const Parts& parts) : _parts(parts) {}

void ComponentUpdateThread::run() {
  do cycle();
  while (!stopToken().sleepFor(kComponentCycleMs));
}

void ComponentUpdateThread::cycle() {
  const auto hasTaker = [this] {
    HidsInterface* const ids = _parts.ids();
    return ids && ids->present();
  };
  size_t index = 0;
  for (const ContentKind& kind : contentKinds()) {
    Attempts& attempts = _attempts.at(index++);
    if (!stopRequested() && (_parts.content.settings.*kind.updateNow)() &&
        _parts.clock.monotonicMs() >= attempts.nextMs && hasTaker())
      handOverDownloaded(kind, attempts);
  }
}

void ComponentUpdateThread::handOverDownloaded(const ContentKind& kind, Attempts& attempts) {
  archive::Refusal refusal;
  const Outcome outcome = handOverContent(
      _parts.content, kind, [this] { return stopRequested(); }, refusal);
  const bool reported = attempts.failing;
  attempts = {};
  if (outcome == Outcome::done) {
    eventlog::event(EventId::contentHandedOver, kComponentSource,
                    {(_parts.content.settings.*kind.metadata)()});
  } else if (outcome == Outcome::refused) {
    eventlog::event(EventId::packageRejected, kComponentSource, {kind.product, refusal.text()});
  } else if (!stopRequested()) {
    if (!reported)
      eventlog::event(EventId::contentNotHandedOver, kComponentSource,
                      {kind.product, refusal.text()});
    attempts = {true, _parts.clock.monotonicMs() + kPauseAfterFailureMs};
  }
}

}  // namespace korvane
