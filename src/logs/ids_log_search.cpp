#include "logs/ids_log_search.h"

#include "config/hids_interface.h"
#include "eventlog/event_log.h"
#include "ids/ids_log_names.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kSearchTag[] = "LogDataHandler::initialize()";
constexpr int kNoticeInterval = 120;

}  // namespace

void IdsLogSearch::attempt() {
  if (done()) return;
  if (_component && _attempts > 0) ignoreResult(_component->reload());
  ++_attempts;
  for (Name& name : _names)
    if (!name.done) attempt(name);
}

void IdsLogSearch::attempt(Name& name) {
  if (_component && fetchIdsLogFile(*_component, _settings, name.type)) {
    name.done = true;
    return;
  }
  reportMissing(name);
  name.done = _attempts >= kAttempts;
}

void IdsLogSearch::reportMissing(const Name& name) const {
  if (_attempts >= kAttempts)
    eventlog::trace(kSearchTag, " failed to get %s", idsLogSetting(name.type));
  else if (_attempts % kNoticeInterval == 0)
    eventlog::trace(kSearchTag, " failed to get %s. sleep.", idsLogSetting(name.type));
}

}  // namespace korvane
