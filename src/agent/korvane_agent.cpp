#include "agent/korvane_agent.h"

#include <exception>
#include <thread>

#include "agent/agent_factory.h"
#include "agent/policy_state.h"
#include "agent/stop_step.h"
#include "agent/thread/agent_info.h"
#include "agent/thread/exceptions.h"
#include "agent/thread/stop_token.h"
#include "cloud/application_policies.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/log_settings.h"
#include "config/machine_facts.h"
#include "config/policy_settings.h"
#include "config/prevention.h"
#include "config/server_settings.h"
#include "config/service_type.h"
#include "config/settings_file.h"
#include "config/update_settings.h"
#include "config/url_text.h"
#include "driver/driver.h"
#include "eventlog/event_log.h"
#include "platform/paths.h"
#include "platform/platform.h"
#include "platform/sockets.h"
#include "platform/system_info.h"
#include "translator/translator.h"
#include "update/policy/policy_processor.h"
#include "util/ignore_result.h"

namespace korvane {
namespace {

constexpr char kMainTag[] = "MainThread";
constexpr char kAgentTag[] = "KorvaneAgent";
constexpr uint32_t kFinalWaitStepMs = 1000;
constexpr uint32_t kSupervisionMs = 1000;
constexpr uint32_t kFirstUpdateMs = 2000;

}  // namespace

KorvaneAgent::KorvaneAgent(const AgentContext& context)
    : _context(context),
      _settings(_context.settings),
      _driverWatch(_context.settings, _context.driver),
      _stoppedEvent(kFinalWaitStepMs),
      _returnedEvent(kFinalWaitStepMs) {
  // Takes each lock once, so that a system that has none to give refuses the agent and not
  // its stop.
  { const Synchronized made(_commLock); }
  { const Synchronized made(_shutdownLock); }
  eventlog::trace(kMainTag, "KorvaneAgent Constructor");
}

KorvaneAgent::~KorvaneAgent() = default;

void KorvaneAgent::run(AgentInfo* info) {
  _info = info;
  try {
    mainRoutine();
  } catch (const std::exception& error) {
    endAfter(error.what());
  } catch (...) {
    endAfter("unknown exception");
  }
}

void KorvaneAgent::endAfter(const char* error) {
  eventlog::trace(kMainTag, "KorvaneAgent::run() ended by an error: %s", error);
  eventlog::event(EventId::shutdownAfterError, kAgentTag, {error});
  shutdown(FinalWait::none);
  closeDown();
}

void KorvaneAgent::mainRoutine() {
  begin();
  // Before the driver is asked anything, and before its answer is told to anybody.
  // What it could not put back is reported as the policy's error.
  if (!stopping()) ignoreResult(PolicyProcessor(_context.policies).reconcile());
  initializeTranslator();
  createComm();
  startComponentUpdate();
  if (!registerAtStart()) {
    returned();
    return selfExit();
  }
  checkBuiltinPolicy();
  reportPolicyState();
  startAppData();
  if (!startServerThreads()) return selfExit();
  startLogThreads();
  if (!supervise()) return selfExit();
  end();
}

void KorvaneAgent::begin() {
  // A stop that came before this point has set _stopped, and stays in force.
  _running = 1;
  platform::Platform& system = _context.system;
  system.systemInfo.adoptUserLocale();
  if (const int error = system.sockets.startup(); error != 0)
    eventlog::trace(kMainTag, "Sockets cannot be used: error %d", error);
  readServiceType();
  _settings.policy.setIPSServiceStatus(0);
  eventlog::trace(kMainTag, "KorvaneAgent::run() IPS service started type: %d", serviceType());
}

void KorvaneAgent::initializeTranslator() {
  const std::string extensions =
      platform::joinPath(_context.system.files, {installDirectory(), "extensions"});
  // A library that cannot be loaded has been told of; the agent runs without it.
  ignoreResult(Translator::initialize(extensions));
}

void KorvaneAgent::createComm() {
  const STRING version = _settings.machine.getKorvaneVersion();
  {
    Synchronized hold(_commLock);
    _comm = makeAgentComm(_context);
  }
  if (isCloudAgent() && !stopping()) loadApplicationPolicies(_context.policies);
  eventlog::event(EventId::agentStarted, kAgentTag, {version});
  if (isStandardAgent()) tellServer();
  AgentConfig::setAgentStarted(true);
}

void KorvaneAgent::tellServer() {
  const ServerSettings& server = _settings.server;
  const STRING url = withoutUser(server.getURL().toUtf8());
  eventlog::event(EventId::managementServer, kAgentTag, {url});
  if (server.isPlainHttpEnabled()) eventlog::event(EventId::plainHttpAllowed, kAgentTag, {url});
  if (const size_t entries = server.getServerListRefused(); entries > 0)
    eventlog::event(EventId::serverEntriesLeftOut, kAgentTag,
                    {STRING::fromInt(static_cast<int64_t>(entries))});
}

void KorvaneAgent::startComponentUpdate() {
  _workers.start(Worker::componentUpdate, [this] { return makeComponentUpdate(_context); });
}

bool KorvaneAgent::registerAtStart() {
  if (!isStandardAgent() || stopping()) return true;
  // Only for the log: the registration that follows finds out for itself.
  ignoreResult(_comm->testConnection());
  return registerNow();
}

// A stop may have come while the step ran; it then answers true, and every later step does nothing.
bool KorvaneAgent::registerNow() {
  return _comm->registerAgent(_builtinReported);
}

void KorvaneAgent::checkBuiltinPolicy() {
  if (stopping()) return;
  if (!preventionInForce(_settings.policy))
    refreshPolicyIdentity(_settings.policy, _context.driver);
  else if (reportBuiltinPolicy(_settings.policy, _context.driver))
    _builtinReported = 1;
  _driverWatch.look();
}

void KorvaneAgent::reportPolicyState() {
  if (isStandardAgent() && _settings.policy.getPolicyStateCode() == kBuiltinPolicyState &&
      !stopping())
    _comm->reportPolicyState();
  _settings.policy.setPolicyStateChanged(false);
}

void KorvaneAgent::startAppData() {
  const auto generic = [this] { return makeGenericAppData(_context); };
  if (isStandardAgent() || isType3Agent()) {
    _workers.start(Worker::genericAppData, generic);
    eventlog::trace(kMainTag, "Starting Generic AppData Processing Thread");
    return;
  }
  eventlog::trace(kMainTag, "Starting AppData Processing Thread");
  _workers.start(Worker::genericAppData, generic);
  _workers.start(Worker::appData, [this] { return makeAppData(_context); });
}

bool KorvaneAgent::startServerThreads() {
  if (isStandardAgent()) {
    _workers.start(Worker::update, [this] { return makeUpdate(_info); });
    return awaitFirstUpdate();
  }
  _workers.start(Worker::comm, [this] { return makeComm(_context, _info); });
  _workers.start(Worker::util, [this] { return makeUtil(_info); });
  return true;
}

bool KorvaneAgent::awaitFirstUpdate() {
  while (!_settings.updates.isFirstUpdateDone() && !stopping()) {
    pause(kFirstUpdateMs);
    if (stopping()) break;
    // Without the file the settings stay as they are; the failure has been traced.
    ignoreResult(_settings.file.loadIniFile());
    if (!registerNow()) return false;
  }
  return true;
}

void KorvaneAgent::startLogThreads() {
  _workers.start(Worker::logProcessing, [this] { return makeLogProcessing(_context); });
  _workers.start(Worker::bulkLogProcessing, [this] { return makeBulkLogProcessing(_context); });
}

bool KorvaneAgent::supervise() {
  while (_stopped == 0) {
    if (!stopping()) {
      if (!superviseOnce()) return false;
      if (commandPending()) {
        eventlog::event(EventId::shuttingDown, kAgentTag);
        return true;
      }
    }
    pause(kSupervisionMs);
  }
  return true;
}

bool KorvaneAgent::superviseOnce() {
  if (!isStandardAgent())
    _settings.policy.updateRebootRequiredFlag();
  else if (!registerNow())
    return false;
  if (stopping()) return true;
  if (_iniDirty) _iniDirty = !_settings.file.updateIniFile(nullptr, nullptr, STRING());
  // Without the file the settings stay as they are; the failure has been traced.
  ignoreResult(_settings.file.loadIniFile());
  followBuiltinPolicy();
  followOwnLog();
  _driverWatch.look();
  return true;
}

void KorvaneAgent::followBuiltinPolicy() {
  if (!preventionInForce(_settings.policy) || !_settings.policy.useBuiltInPolicyChanged()) return;
  reportPolicyChange(_settings.policy, _context.driver);
  _iniDirty = true;
}

void KorvaneAgent::followOwnLog() {
  if (!_settings.logs.agentLogFileChanged()) return;
  _settings.logs.rolledAgentLogFile();
  _iniDirty = true;
}

// After a registration that failed for good. When it failed at the start, run() counts as
// returned already; later it does not, and the final wait of the shutdown never ends: the
// host's deadline does.
void KorvaneAgent::selfExit() {
  shutdown(FinalWait::untilReturned);
  if (_info) _info->post({kExitServiceCommand, kExitServiceName});
  eventlog::event(EventId::shutdownAfterRegistration, kAgentTag);
  _context.system.sockets.cleanup();
}

void KorvaneAgent::end() {
  if (isStandardAgent()) stopComm();
  if (_stopped == 0) {
    eventlog::event(EventId::shuttingDown, kAgentTag);
    shutdown(FinalWait::none);
  }
  closeDown();
}

void KorvaneAgent::closeDown() {
  stopStep("translator library", [] { Translator::shutdown(); });
  stopStep("sockets", [this] { _context.system.sockets.cleanup(); });
  eventlog::event(EventId::agentStopped, kAgentTag);
  returned();
}

void KorvaneAgent::returned() {
  _running = 0;
  stopStep("word of the main routine's end", [this] { _returnedEvent.post(); });
}

bool KorvaneAgent::stopping() const {
  return shutdownToken().requested();
}

bool KorvaneAgent::commandPending() const {
  return _info && _info->pending();
}

// Once a stop has been requested there is nothing left to do but to see the shutdown
// routine through.
void KorvaneAgent::pause(uint32_t milliseconds) {
  if (shutdownToken().sleepFor(milliseconds)) _stoppedEvent.wait();
}

void KorvaneAgent::stopComm() {
  Synchronized hold(_commLock);
  if (_comm) _comm->stop();
}

void KorvaneAgent::shutdown(FinalWait finalWait) {
  eventlog::trace(kMainTag, "KorvaneAgent shutdown called");
  stopStep("stop token", [] { shutdownToken().request(); });
  AgentConfig::setAgentShuttingdown(true);
  {
    Synchronized hold(_shutdownLock);
    // The last writing of all: its failure has been traced, and there is no later one.
    stopStep("settings", [this] { ignoreResult(_settings.file.UpdateAllIni()); });
    if (isStandardAgent()) stopStep("communication component", [this] { stopComm(); });
    _workers.requestStops();
    // Threads that outlive the wait delete themselves.
    stopStep("wait for the threads",
             [this] { ignoreResult(_workers.waitForEnd(isStandardAgent())); });
    if (_stopped == 0) _workers.remove();
    _stopped = 1;
    stopStep("word of the threads' end", [this] { _stoppedEvent.post(); });
  }
  if (finalWait == FinalWait::none) return;
  while (_running != 0) awaitReturn();
}

void KorvaneAgent::awaitReturn() noexcept {
  try {
    _returnedEvent.wait();
  } catch (const ThreadException&) {
    std::this_thread::yield();
  }
}

}  // namespace korvane
