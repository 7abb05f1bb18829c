#include "update/update_thread.h"

#include "comm/https_handler.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/prevention.h"
#include "discovery/app_data_requests.h"
#include "eventlog/event_log.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "util/errors.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kUpdateSource[] = "UpdateThread";
constexpr char kUpdateRunTag[] = "UpdateThread::run";
constexpr char kAppDataTag[] = "UpdateThread::notifyAppDataCollection";
constexpr uint32_t kUpdateCycleMs = 1000;

STRING shortcutsFile() {
  return platform::joinPath(platform::current().files, {installDirectory(), "shortcuts.txt"});
}

}  // namespace

const int UpdateThread::MAX_RETRY;
const int UpdateThread::RETRY_INTERVAL;

UpdateThread::UpdateThread(AgentInfo*) {}

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
  _config = AgentConfig::getInstance();
  // Without a history the policies are worked on all the same; that has been traced.
  ignoreResult(_policy.InitializePloicyHistory());
  // Without its items a policy is not checked for retranslation; that has been told.
  if (preventionInForce(*_config)) ignoreResult(_policy.loadRetransItems());
  _pollingInterval = 0;
  reloadAutoRetransInterval();
  if (_config->updateInProgress())
    SoftwareUpdate::sendUpdateResults(_config->getSoftwareUpdateDirectory());
  PolicyProcessor::RemovePrevHIDSPolicies();
  _initialised = true;
}

bool UpdateThread::work() {
  const bool needsPause = tcpNotification();
  if (_autoRetransCountdown == 0 && preventionInForce(*_config)) _policy.checkRetrans();
  if (statusDue()) {
    PolicyProcessor::reportOutstanding();
    monitorPrevention();
    sendAgentStatus();
  }
  processConfigPolicyUpdates();
  if (HttpsHandler::getLastError() == 0) {
    processHIDSPolicyUpdate();
    _software.processSoftwareUpdate();
  }
  _content.processComponentUpdates();
  notifyAppDataCollection();
  monitorPolicyState();
  if (!_bFirstPollRequired) _config->setFirstUpdateDone();
  retranslateOnRequest();
  retranslateIdsOnRequest();
  return needsPause;
}

// A notification asks for updates, not for a status: it begins the countdown to that anew.
bool UpdateThread::tcpNotification() {
  const NotificationListener::Outcome outcome = _listener.poll(_pollingInterval);
  if (outcome.byte && _pending.takeNotification(*outcome.byte)) {
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
  _builtInWish.step(preventionInForce(*_config));
  updatePollingInterval();
  updateAutoRetransInterval();
  _config->updateRebootRequiredFlag();
}

void UpdateThread::updatePollingInterval() {
  _pollingInterval =
      steppedCountdown(_pollingInterval, _config->pollingEnabled(), _config->getPollingInterval());
}

void UpdateThread::updateAutoRetransInterval() {
  _autoRetransCountdown = steppedCountdown(_autoRetransCountdown, _config->autoRetransEnabled(),
                                           _config->getAutoRetransInterval());
}

void UpdateThread::reloadAutoRetransInterval() {
  _autoRetransCountdown =
      steppedCountdown(0, _config->autoRetransEnabled(), _config->getAutoRetransInterval());
}

void UpdateThread::notifyAppDataCollection() {
  // Besides a status, every answer to a report may bring one; a server offers it once, perhaps.
  STRING offered;
  if (HttpsHandler::takeApplicationRequest(offered) && !_pending.applicationRequest) {
    _pending.applicationRequest = true;
    _pending.applicationRequestId = offered;
  }
  if (!_pending.applicationRequest) return;
  _pending.applicationRequest = false;
  if (_config->isAppDataRequested()) {
    eventlog::trace(kAppDataTag, "Application Data Collection already initiated");
    return;
  }
  {
    const AgentConfig::ChangeGroup group(*_config);
    _config->setAppDataRequested(true);
    _config->setAppDataRequestID(_pending.applicationRequestId);
  }
  // What cannot be written now is written by one of the next loads.
  ignoreResult(_config->UpdateAllIni());
  eventlog::trace(kAppDataTag, "Posting the event");
  appDataRequests().post(shortcutsFile());
}

}  // namespace korvane
