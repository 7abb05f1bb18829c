#include "update/update_thread.h"

#include "comm/https_handler.h"
#include "config/agent_config.h"
#include "eventlog/event_log.h"
#include "ids/ids_log_names.h"
#include "update/prevention_state.h"
#include "update/server_answer.h"

namespace korvane {
namespace {

constexpr char kSource[] = "UpdateThread";
constexpr char kRunTag[] = "UpdateThread::run";
constexpr uint32_t kCycleMs = 1000;
constexpr int32_t kFirstStatusRetryCycles = 2;

constexpr int kEventServerError = 10217;

}  // namespace

UpdateThread::UpdateThread(AgentInfo*) {}

UpdateThread::~UpdateThread() = default;

void UpdateThread::stop() {
  _running = false;
  Thread::stop();
}

void UpdateThread::run() {
  eventlog::trace(kRunTag, "*****Update thread starting*****");
  prepare();
  while (_running) {
    const bool needsPause = work();
    if (needsPause && _running) stopToken().sleepFor(kCycleMs);
    stepCountdowns();
  }
  eventlog::trace(kRunTag, "*****Update Thread exiting*****");
}

void UpdateThread::cycle() {
  prepare();
  work();
  stepCountdowns();
}

void UpdateThread::prepare() {
  if (_initialised) return;
  _config = AgentConfig::getInstance();
  _pollingInterval = 0;
  if (_config->autoRetransEnabled())
    _autoRetransCountdown = steppedCountdown(0, true, _config->getAutoRetransInterval());
  _initialised = true;
}

bool UpdateThread::work() {
  const bool needsPause = tcpNotification();
  if (statusDue()) {
    monitorPrevention();
    sendAgentStatus();
  }
  monitorPolicyState();
  if (!_bFirstPollRequired) _config->setFirstUpdateDone();
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

bool UpdateThread::statusDue() {
  if (_pollingInterval == 0) {
    _firstStatusRetry = kFirstStatusRetryCycles;
    return true;
  }
  if (!_bFirstPollRequired || _pollingInterval > 0) return false;
  if (--_firstStatusRetry > 0) return false;
  _firstStatusRetry = kFirstStatusRetryCycles;
  return true;
}

void UpdateThread::sendAgentStatus() {
  HttpsHandler handler;
  if (handler.sendAgentStatusMessage(_bFirstPollRequired) != 0) return;
  if (!acceptStatusAnswer(handler)) return;
  _bFirstPollRequired = false;
  PropertyList properties;
  handler.GetPollingProperties(properties);
  if (properties.empty()) {
    eventlog::trace(kSource, "Received NO polling properties");
    return;
  }
  eventlog::trace(kSource, "Received polling properties");
  _pending.takePollingProperties(properties);
}

bool UpdateThread::acceptStatusAnswer(HttpsHandler& handler) {
  const ServerAnswer answer = takeServerAnswer(handler, kEventServerError);
  _lastServerError = answer.code;
  if (answer.accepted()) _configRetry.clear();
  return !answer.refused();
}

void UpdateThread::monitorPrevention() {
  PreventionSettings settings;
  settings.ipsEnabled = _config->isIPSEnabled();
  settings.ipsRebootDone = _config->isIPSRebootDone();
  settings.fimEnabled = _config->isFIMEnabled();
  settings.fimRebootDone = _config->isFIMRebootDone();
  if (settings.ipsEnabled && settings.ipsRebootDone && preventionTestKeyCanBeMade()) {
    _config->setPolicyError(kPreventionDisabledCode, kPreventionDisabledText);
    return;
  }
  const PreventionReport report = describePrevention(settings);
  _config->setPolicyError(report.code | kIdsLogSearchRead, report.text);
  HidsInterface* ids = AgentConfig::getHIDSInterface();
  if (ids && ids->present() && !takeIdsLogFiles(*ids))
    eventlog::trace("processConfigPolicyUpdates", "IDS did not report log file name");
}

void UpdateThread::monitorPolicyState() {
  if (!_config->hasPolicyStateChanged()) return;
  if (_config->getPolicyStateCode() < 0) HttpsHandler().sendPolicyStateMessage();
  if (_config->hasRealPolicyStateChanged()) _config->updateIniFile();
  _config->setPolicyStateChanged(false);
}

}  // namespace korvane
