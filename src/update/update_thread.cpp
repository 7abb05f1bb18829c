#include "update/update_thread.h"

#include "comm/https_handler.h"
#include "comm/server_connection.h"
#include "config/policy_settings.h"
#include "config/prevention.h"
#include "config/settings_file.h"
#include "config/update_settings.h"
#include "discovery/app_data_requests.h"
#include "eventlog/event_log.h"
#include "util/errors.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kUpdateSource[] = "UpdateThread";
constexpr char kUpdateRunTag[] = "UpdateThread::run";
constexpr char kAppDataTag[] = "UpdateThread::notifyAppDataCollection";
constexpr uint32_t kUpdateCycleMs = 1000;

}  // namespace

const int UpdateThread::MAX_RETRY;
const int UpdateThread::RETRY_INTERVAL;

UpdateThread::UpdateThread(AgentInfo*) : UpdateThread(updatePartsOfRun()) {}

UpdateThread::UpdateThread(const UpdateParts& parts)
    : _parts(parts),
      _policy(parts.policy),
      _builtInSwitch(parts.policy.driver, parts.settings.policy),
      _configExchange(configPolicyUpdates(), _pending, _configRetry, parts.settings.server,
                      parts.policy.connection),
      _idsExchange(idsUpdates(), _pending, _idsRetry, parts.settings.server,
                   parts.policy.connection),
      _software(
          {parts.policy.files, parts.policy.clock, parts.settings.server, parts.policy.connection,
           parts.settings.updates, parts.settings.policy, parts.settings.file, parts.policy.stop},
          _pending, _softwareRetry),
      _content({parts.content, parts.policy.clock, parts.settings.policy, parts.settings.server,
                parts.policy.connection, parts.policy.stop},
               _pending, _componentRetry),
      _listener(stopToken(), parts.sockets, parts.settings.updates) {}

UpdateThread::~UpdateThread() = default;

void UpdateThread::stop() {
  _running = false;
  Thread::stop();
}

void UpdateThread::run() {
  eventlog::trace(kUpdateRunTag, "*****Update thread starting*****");
  try {
    loop();
  } catch (const AgentError& error) {
    eventlog::event(EventId::updateThreadStopped, kUpdateSource,
                    {error.code(), error.context(), error.text()});
    throw;
  }
  eventlog::trace(kUpdateRunTag, "*****Update Thread exiting*****");
}

void UpdateThread::loop() {
  prepare();
  while (_running) {
    const bool needsPause = work();
    if (needsPause && _running) stopToken().sleepFor(kUpdateCycleMs);
    stepCountdowns();
  }
}

void UpdateThread::cycle() {
  prepare();
  work();
  stepCountdowns();
}

void UpdateThread::prepare() {
  if (_initialised) return;
  // Without a history the policies are worked on all the same; that has been traced.
  ignoreResult(_policy.InitializePloicyHistory());
  // Without its items a policy is not checked for retranslation; that has been told.
  if (preventionInForce(_parts.settings.policy)) ignoreResult(_policy.loadRetransItems());
  _pollingInterval = 0;
  reloadAutoRetransInterval();
  const UpdateSettings& settings = _parts.settings.updates;
  if (settings.updateInProgress())
    _software.sendUpdateResults(settings.getSoftwareUpdateDirectory());
  _policy.RemovePrevHIDSPolicies();
  _initialised = true;
}

bool UpdateThread::work() {
  const bool needsPause = tcpNotification();
  if (_autoRetransCountdown == 0 && preventionInForce(_parts.settings.policy))
    _policy.checkRetrans();
  if (statusDue()) {
    _policy.reportOutstanding();
    monitorPrevention();
    sendAgentStatus();
  }
  processConfigPolicyUpdates();
  if (_parts.policy.connection.record().transferError() == 0) {
    processHIDSPolicyUpdate();
    _software.processSoftwareUpdate();
  }
  _content.processComponentUpdates();
  notifyAppDataCollection();
  monitorPolicyState();
  if (!_bFirstPollRequired) _parts.settings.updates.setFirstUpdateDone();
  retranslateOnRequest();
  retranslateIdsOnRequest();
  return needsPause;
}

// A notification asks for updates, not for a status: it begins the countdown to that anew.
bool UpdateThread::tcpNotification() {
  const NotificationListener::Outcome outcome = _listener.poll(_pollingInterval);
  if (outcome.byte && _pending.acceptNotification(*outcome.byte)) {
    _pollingInterval = 0;
    updatePollingInterval();
  }
  return !outcome.connected && !outcome.waited;
}

void UpdateThread::stepCountdowns() {
  _configRetry.step();
  _idsRetry.step();
  _softwareRetry.step();
  _componentRetry.step();
  _builtInSwitch.step(preventionInForce(_parts.settings.policy));
  updatePollingInterval();
  updateAutoRetransInterval();
  _parts.settings.policy.updateRebootRequiredFlag();
}

void UpdateThread::updatePollingInterval() {
  const UpdateSettings& settings = _parts.settings.updates;
  _pollingInterval =
      steppedCountdown(_pollingInterval, settings.pollingEnabled(), settings.getPollingInterval());
}

void UpdateThread::updateAutoRetransInterval() {
  const PolicySettings& settings = _parts.settings.policy;
  _autoRetransCountdown = steppedCountdown(_autoRetransCountdown, settings.autoRetransEnabled(),
                                           settings.getAutoRetransInterval());
}

void UpdateThread::reloadAutoRetransInterval() {
  _autoRetransCountdown = 0;
  updateAutoRetransInterval();
}

void UpdateThread::notifyAppDataCollection() {
  // Besides a status, every answer to a report may bring one; a server offers it once, perhaps.
  STRING offered;
  if (_parts.policy.connection.collectApplicationRequest(offered) && !_pending.applicationRequest) {
    _pending.applicationRequest = true;
    _pending.applicationRequestId = offered;
  }
  if (!_pending.applicationRequest) return;
  _pending.applicationRequest = false;
  // A later request than the one that is served comes after it.
  const auto asked = _parts.applicationData.ask({_parts.settings.updates, _parts.settings.file},
                                                _pending.applicationRequestId);
  eventlog::trace(kAppDataTag, asked == AppDataRequests::Asked::begun
                                   ? "Posting the event"
                                   : "Application Data Collection already initiated");
}

}  // namespace korvane
