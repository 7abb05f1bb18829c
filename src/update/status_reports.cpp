// The status that the update thread sends to its server, and what it watches for it.
#include "comm/https_handler.h"
#include "comm/report_answer.h"
#include "config/hids_interface.h"
#include "config/policy_settings.h"
#include "config/prevention.h"
#include "config/server_settings.h"
#include "config/settings_file.h"
#include "eventlog/event_log.h"
#include "ids/ids_log_names.h"
#include "update/prevention_state.h"
#include "update/server_answer.h"
#include "update/update_thread.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kReportSource[] = "UpdateThread";

}  // namespace

bool UpdateThread::statusDue() {
  if (_pollingInterval == 0) return true;
  _statusRepeat.step();
  return _pollingInterval < 0 && _bFirstPollRequired && _statusRepeat.due() &&
         _parts.settings.server.registered();
}

void UpdateThread::sendAgentStatus() {
  HttpsHandler handler(_parts.policy.connection);
  if (handler.sendAgentStatusMessage(_bFirstPollRequired) != 0) return _statusRepeat.failed();
  const ServerAnswer answer =
      handleServerAnswer(handler, EventId::serverError, _parts.settings.server);
  // Under the identity that the agent gets instead, its status is another one.
  if (answer.code == kServerUnknownAgent)
    _statusRepeat.failed();
  else
    _statusRepeat.clear();
  if (answer.accepted()) _configRetry.clear();
  if (answer.refused()) return;
  _bFirstPollRequired = false;
  PropertyList properties;
  // An answer without them leaves the list empty.
  ignoreResult(handler.GetPollingProperties(properties));
  if (properties.empty()) {
    eventlog::trace(kReportSource, "Received NO polling properties");
    return;
  }
  eventlog::trace(kReportSource, "Received polling properties");
  _pending.applyPollingProperties(properties);
}

void UpdateThread::monitorPrevention() {
  PolicySettings& settings = _parts.settings.policy;
  PreventionSettings now;
  now.ipsEnabled = settings.isIPSEnabled();
  now.ipsRebootDone = settings.isIPSRebootDone();
  now.fimEnabled = settings.isFIMEnabled();
  now.fimRebootDone = settings.isFIMRebootDone();
  const PreventionTest test =
      preventionInForce(settings) ? testPrevention(_parts.policy.registry) : PreventionTest::failed;
  settings.setIPSEnforced(test == PreventionTest::refused);
  if (test == PreventionTest::keyMade) {
    settings.setPolicyError(kPreventionDisabledCode, kPreventionDisabledText);
    return;
  }
  const SettingsFile::ChangeGroup group(_parts.settings.file);
  const PreventionReport report = describePrevention(now);
  settings.setPolicyError(report.code, report.text);
  HidsInterface* ids = _parts.ids();
  if (ids && ids->present() && !fetchIdsLogFiles(*ids, _parts.settings.logs))
    eventlog::trace("processConfigPolicyUpdates", "IDS did not report log file name");
  settings.setPolicyError(report.code | kIdsLogSearchRead, report.text);
}

void UpdateThread::monitorPolicyState() {
  PolicySettings& settings = _parts.settings.policy;
  if (!settings.hasPolicyStateChanged()) return;
  if (settings.getPolicyStateCode() < 0) {
    HttpsHandler handler(_parts.policy.connection);
    // What the server still misses, the next status says.
    ignoreResult(reportTaken(handler, handler.sendPolicyStateMessage()));
  }
  // What cannot be written now is written by one of the next loads.
  if (settings.hasRealPolicyStateChanged()) ignoreResult(_parts.settings.file.updateIniFile());
  settings.setPolicyStateChanged(false);
}

}  // namespace korvane
