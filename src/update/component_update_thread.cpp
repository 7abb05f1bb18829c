#include "update/component_update_thread.h"

#include "config/agent_config.h"
#include "config/hids_interface.h"
#include "eventlog/event_log.h"
#include "platform/clock.h"
#include "platform/platform.h"

namespace korvane {
namespace {

using Outcome = ContentPackage::Outcome;

constexpr char kComponentSource[] = "ComponentUpdateThread";
constexpr uint32_t kComponentCycleMs = 1000;

bool hasTaker() {
  HidsInterface* ids = AgentConfig::getHIDSInterface();
  return ids && ids->present();
}

}  // namespace

ComponentUpdateThread::ComponentUpdateThread() = default;

void ComponentUpdateThread::run() {
  do cycle();
  while (!stopToken().sleepFor(kComponentCycleMs));
}

void ComponentUpdateThread::cycle() {
  AgentConfig& config = *AgentConfig::getInstance();
  size_t index = 0;
  for (const ContentKind& kind : contentKinds()) {
    Attempts& attempts = _attempts.at(index++);
    if (!stopRequested() && (config.*kind.updateNow)() &&
        platform::current().clock.monotonicMs() >= attempts.nextMs && hasTaker())
      takeOver(kind, attempts);
  }
}

void ComponentUpdateThread::takeOver(const ContentKind& kind, Attempts& attempts) {
  archive::Refusal refusal;
  const Outcome outcome = handOverContent(
      kind, [this] { return stopRequested(); }, refusal);
  const bool reported = attempts.failing;
  attempts = {};
  if (outcome == Outcome::done) {
    eventlog::event(EventId::contentHandedOver, kComponentSource,
                    {(AgentConfig::getInstance()->*kind.metadata)()});
  } else if (outcome == Outcome::refused) {
    eventlog::event(EventId::packageRejected, kComponentSource, {kind.product, refusal.text()});
  } else if (!stopRequested()) {
    if (!reported)
      eventlog::event(EventId::contentNotHandedOver, kComponentSource,
                      {kind.product, refusal.text()});
    attempts = {true, platform::current().clock.monotonicMs() + kPauseAfterFailureMs};
  }
}

}  // namespace korvane
