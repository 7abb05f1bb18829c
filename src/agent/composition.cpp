#include "agent/composition.h"

#include <exception>
#include <memory>
#include <utility>
#include <vector>

#include "agent/agent_factory.h"
#include "agent/stop_step.h"
#include "agent/thread/stop_token.h"
#include "agent/thread/thread.h"
#include "comm/https_handler.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "eventlog/event_log.h"
#include "ids/hids_component.h"
#include "platform/clock.h"
#include "platform/platform.h"
#include "translator/translator.h"
#include "util/agent_run.h"

namespace korvane {
namespace {

bool localAddresses(std::vector<STRING>& addresses) {
  return Translator::getFunctionValues("LocalIPs", addresses);
}

// The service's thread ends at once; this is for one whose method does not.
constexpr uint32_t kServiceEndMs = 1500;

// An agent that nobody can ask is better than none.
Thread* startLocalService() {
  try {
    std::unique_ptr<Thread> service(makeLocalService());
    service->start();
    return service.release();
  } catch (const std::exception& error) {
    eventlog::trace("RPC", "The local channel has no thread: %s", error.what());
    return nullptr;
  }
}

}  // namespace

Composition::Composition() {
  try {
    assemble();
  } catch (const std::exception& error) {
    eventlog::event(EventId::agentNotStarted, "KorvaneAgent", {error.what()});
    takeDown();
    throw;
  } catch (...) {
    takeDown();
    throw;
  }
}

void Composition::assemble() {
  _log = std::make_unique<OwnLog>();
  AgentConfig& config = *AgentConfig::getInstance();
  config.setWhoIsRunning(AgentConfig::RUNNING_AGENT);
  config.setFirstUpdateDone(false);
  _log->open(config);
  HttpsHandler::setLocalAddressSource(localAddresses);
  platform::Platform& system = platform::current();
  const auto ids = std::make_shared<HidsComponent>(
      HidsComponent::Surroundings{system.files, system.clock, shutdownToken()}, idsDirectory(),
      [] { return AgentConfig::getInstance()->getIDSSignalTimeout(); });
  AgentRun::current().keep(ids);
  AgentConfig::setHIDSInterface(ids.get());
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

// A thread that was left behind keeps its run, and so the store and the IDS component, for
// as long as it lives.
void Composition::takeDown() noexcept {
  stopStep("local channel", [this] { endLocalService(); });
  stopStep("source of addresses", [] { HttpsHandler::setLocalAddressSource(nullptr); });
  if (Thread::abandoned() > 0) return;
  AgentConfig::setHIDSInterface(nullptr);
  stopStep("connections", [] { HttpsHandler::curlCleanup(); });
  stopStep("settings store", [] { AgentConfig::freeInstance(); });
}

}  // namespace korvane
