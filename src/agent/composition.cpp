#include "agent/composition.h"

#include <list>
#include <memory>
#include <vector>

#include "agent/agent_state_handler.h"
#include "agent/thread/stop_token.h"
#include "agent/thread/thread.h"
#include "cloud/local_service.h"
#include "comm/exchange_outcome.h"
#include "comm/https_handler.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/service_type.h"
#include "driver/notify_driver.h"
#include "eventlog/event_log.h"
#include "ids/hids_component.h"
#include "logs/forwarding_counters.h"
#include "logs/log_processing_thread.h"
#include "platform/platform.h"
#include "translator/translator.h"
#include "update/policy/policy_news.h"

namespace korvane {
namespace {

struct MadePlatform {
  platform::NativeOptions options;
  std::unique_ptr<platform::NativePlatform> native;
};

// The operating system as the host's options describe it, made anew when they differ from the last ones.
// What was made is kept for ever, since a thread that was left behind may still use it.
void adoptPlatform() {
  static std::list<MadePlatform>& made = *new std::list<MadePlatform>;
  platform::SystemInfo& system = platform::current().systemInfo;
  const platform::NativeOptions options{system.environment("KORVANE_REGISTRY"),
                                        system.environment("KORVANE_RUN_DIR")};
  if (!made.empty() && made.back().options.registryFile == options.registryFile &&
      made.back().options.runDirectory == options.runDirectory)
    return;
  made.push_back({options, platform::makeNativePlatform(options)});
  platform::setCurrent(&made.back().native->platform());
}

void resetProcessState() {
  shutdownToken().reset();
  AgentConfig::setAgentShuttingdown(false);
  AgentConfig::setAgentStarted(false);
  resetServiceType();
  setInstallRoot({});
  HttpsHandler::startCommunication();
  PolicyNews::reset();
  resetExchangeOutcome();
  ForwardingCounters::reset();
  LogProcessingThread::setPolicyBuffer(false);
  beginDriverEvents();
}

bool localAddresses(std::vector<STRING>& addresses) {
  return Translator::getFunctionValues("LocalIPs", addresses);
}

// The service's thread ends at once; this is for one whose method does not.
constexpr uint32_t kServiceEndMs = 1500;

AboutAgent aboutThisAgent() {
  platform::Platform& system = platform::current();
  const auto state = [&system](std::string (AgentStateHandler::*what)()) {
    return [&system, what] { return (AgentStateHandler(system.processes).*what)(); };
  };
  AboutAgent about;
  about.techStatus = state(&AgentStateHandler::getTechStatus);
  about.techNames = state(&AgentStateHandler::getTechNames);
  about.version = state(&AgentStateHandler::getAgentVersion);
  about.startedWallMs = system.clock.wallMs();
  about.startedMonotonicMs = system.clock.monotonicMs();
  return about;
}

// An agent that nobody can ask is better than none.
Thread* startLocalService() {
  try {
    auto service = std::make_unique<LocalService>(aboutThisAgent());
    service->start();
    return service.release();
  } catch (const ThreadException& error) {
    eventlog::trace("RPC", "The local channel has no thread: %s", error.what());
    return nullptr;
  }
}

}  // namespace

Composition::Composition() : _abandonedBefore(Thread::abandoned()) {
  adoptPlatform();
  resetProcessState();
  AgentConfig& config = *AgentConfig::getInstance();
  config.setWhoIsRunning(AgentConfig::RUNNING_AGENT);
  config.setFirstUpdateDone(false);
  _log = std::make_unique<OwnLog>(config);
  HttpsHandler::setLocalAddressSource(localAddresses);
  _ids = std::make_unique<HidsComponent>(
      idsDirectory(), [] { return AgentConfig::getInstance()->getIDSSignalTimeout(); });
  AgentConfig::setHIDSInterface(_ids.get());
  _localService = startLocalService();
}

void Composition::endLocalService() {
  if (!_localService) return;
  _localService->stop();
  _localService->waitEnded(kServiceEndMs);
  Thread::dispose(_localService);
}

// A thread that was left behind keeps what it may still reach: the store and the IDS component stay then.
Composition::~Composition() {
  endLocalService();
  HttpsHandler::setLocalAddressSource(nullptr);
  if (Thread::abandoned() > _abandonedBefore) {
    static_cast<void>(_ids.release());
    return;
  }
  AgentConfig::setHIDSInterface(nullptr);
  HttpsHandler::curlCleanup();
  AgentConfig::freeInstance();
}

}  // namespace korvane
