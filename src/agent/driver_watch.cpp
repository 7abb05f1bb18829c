#include "agent/driver_watch.h"

#include "config/log_settings.h"
#include "config/policy_settings.h"
#include "driver/driver.h"
#include "eventlog/event_log.h"

namespace korvane {
namespace {

constexpr char kWatchSource[] = "KorvaneAgent";

}  // namespace

void DriverWatch::look() {
  tell(_prevention, _settings.policy.isRebootRequested());
  tell(_fileMonitoring, _settings.policy.isFIMRebootRequested());
  if (_looks-- > 0) return;
  _looks = kLooksBetween - 1;
  readDriver();
}

void DriverWatch::tell(Request& request, bool stands) {
  if (stands == request.told) return;
  request.told = stands;
  if (!stands) return eventlog::event(EventId::rebootRequestOver, kWatchSource, {request.purpose});
  const STRING source = _settings.policy.getRebootSource();
  eventlog::event(EventId::rebootRequested, kWatchSource,
                  {source.empty() ? STRING("the configuration tool") : source, request.purpose});
}

void DriverWatch::readDriver() {
  const Driver::Recorded recorded = _driver.recorded();
  _settings.policy.setPolicyEffectiveDate(recorded.policySinceMs);
  _settings.logs.noteDriverLogs(recorded.log, recorded.profileLog);
}

}  // namespace korvane
