#include "agent/composition.h"

#include <exception>
#include <list>
#include <memory>
#include <utility>
#include <vector>

#include "agent/agent_state_handler.h"
#include "agent/stop_step.h"
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
#include "platform/clock.h"
#include "platform/platform.h"
#include "platform/system_info.h"
#include "translator/translator.h"
#include "update/policy/policy_news.h"

namespace korvane {
namespace {

struct MadePlatform {
  platform::NativeOptions options;
  std::unique_ptr<platform::NativePlatform> native;
};

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
  } catch (const std::exception& error) {
    eventlog::trace("RPC", "The local channel has no thread: %s", error.what());
    return nullptr;
  }
}

}  // namespace

// Made anew when the options differ from the last ones. What was made is kept for ever, since a thread that
// was left behind may still use it.
void adoptNativePlatform() {
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

Composition::Composition(const std::function<void()>& afterReset)
    : _abandonedBefore(Thread::abandoned()) {
  try {
    assemble(afterReset);
  } catch (const std::exception& error) {
    eventlog::event(kEventNotStarted, "KorvaneAgent", {error.what()});
    takeDown();
    throw;
  } catch (...) {
    takeDown();
    throw;
  }
}

void Composition::assemble(const std::function<void()>& afterReset) {
  _log = std::make_unique<OwnLog>();
  resetProcessState();
  afterReset();
  AgentConfig& config = *AgentConfig::getInstance();
  config.setWhoIsRunning(AgentConfig::RUNNING_AGENT);
  config.setFirstUpdateDone(false);
  _log->open(config);
  HttpsHandler::setLocalAddressSource(localAddresses);
  _ids = std::make_unique<HidsComponent>(
      idsDirectory(), [] { return AgentConfig::getInstance()->getIDSSignalTimeout(); });
  AgentConfig::setHIDSInterface(_ids.get());
  _localService = startLocalService();
}

void Composition::endLocalService() {
  if (!_localService) return;
  stopStep("local channel", [this] { _localService->stop(); });
  stopStep("wait for the local channel", [this] { _localService->waitEnded(kServiceEndMs); });
  Thread::dispose(std::exchange(_localService, nullptr));
}

Composition::~Composition() {
  takeDown();
}

// A thread that was left behind keeps what it may still reach: the store and the IDS component stay then.
void Composition::takeDown() noexcept {
  stopStep("local channel", [this] { endLocalService(); });
  stopStep("source of addresses", [] { HttpsHandler::setLocalAddressSource(nullptr); });
  if (Thread::abandoned() > _abandonedBefore) {
    static_cast<void>(_ids.release());
    return;
  }
  AgentConfig::setHIDSInterface(nullptr);
  stopStep("connections", [] { HttpsHandler::curlCleanup(); });
  stopStep("settings store", [] { AgentConfig::freeInstance(); });
}

}  // namespace korvane
