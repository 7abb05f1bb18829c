#include "logs/ids_log_names.h"

#include "config/install_root.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr char kTag[] = "LogDataHandler::initialize()";
constexpr int kNoticeInterval = 120;

}  // namespace

void IdsLogNames::attempt() {
  if (done()) return;
  HidsInterface* const component = AgentConfig::getHIDSInterface();
  if (component && _attempts > 0) component->reload();
  ++_attempts;
  for (Name& name : _names)
    if (!name.done) attempt(component, name);
}

void IdsLogNames::attempt(HidsInterface* component, Name& name) {
  STRING value;
  if (component && component->setting(name.setting, value) && !value.empty()) {
    const STRING path = resolveIdsLogName(value.toUtf8());
    (AgentConfig::getInstance()->*name.store)(path);
    eventlog::trace(kTag, name.storedTrace, path);
    name.done = true;
    return;
  }
  giveNotice(name);
  name.done = _attempts >= kAttempts;
}

void IdsLogNames::giveNotice(const Name& name) const {
  if (_attempts >= kAttempts)
    eventlog::trace(kTag, " failed to get %s", name.setting);
  else if (_attempts % kNoticeInterval == 0)
    eventlog::trace(kTag, " failed to get %s. sleep.", name.setting);
}

}  // namespace korvane
