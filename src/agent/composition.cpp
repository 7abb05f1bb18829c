#include "agent/composition.h"

#include <atomic>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

#include "agent/agent_context.h"
#include "agent/agent_factory.h"
#include "agent/installation.h"
#include "agent/stop_step.h"
#include "agent/thread/stop_token.h"
#include "agent/thread/thread.h"
#include "comm/https_handler.h"
#include "comm/server_connection.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/settings_file.h"
#include "config/update_settings.h"
#include "driver/driver.h"
#include "eventlog/event_log.h"
#include "ids/hids_component.h"
#include "ledger/ledger_report.h"
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
Thread* startLocalService(const AgentContext& context) {
  try {
    std::unique_ptr<Thread> service(makeLocalService(context));
    service->start();
    return service.release();
  } catch (const std::exception& error) {
    eventlog::trace("RPC", "The local channel has no thread: %s", error.what());
    return nullptr;
  }
}

// The server is told what has changed since it last took it.
void openLedger(const AgentContext& context) {
  LossLedger& ledger = context.shared.ledger;
  ledger.open(installedFile("lossledger"));
  const auto told = std::make_shared<std::atomic<uint64_t>>(0);
  context.connection.setStatusAddition({[&ledger, told](PropertyList& out) {
                                          const LedgerView view = ledger.view();
                                          if (view.revision != *told)
                                            for (Property& property : ledgerProperties(view))
                                              out.push_back(std::move(property));
                                          return view.revision;
                                        },
                                        [told](uint64_t revision) { *told = revision; }});
}

}  // namespace

Composition::Composition() {
  try {
    assemble();
  } catch (const std::exception& error) {
    eventlog::event(EventId::agentNotStarted, "KorvaneAgent", {error.what()});
    tearDown();
    throw;
  } catch (...) {
    tearDown();
    throw;
  }
}

void Composition::assemble() {
  _log = std::make_unique<OwnLog>(platform::current());
  lookAtInstallation(platform::current());
  const AgentContext context = contextOfRun();
  const Settings& settings = context.settings;
  settings.file.setWhoIsRunning(AgentConfig::RUNNING_AGENT);
  settings.updates.setFirstUpdateDone(false);
  _log->open(settings.logs, settings.file);
  removeUnfinishedFiles(context.system.files);
  _connection = &currentConnection();
  _connection->setLocalAddressSource(localAddresses);
  const auto ids = std::make_shared<HidsComponent>(
      HidsComponent::Surroundings{context.system.files, context.system.clock, shutdownToken()},
      idsDirectory(), [&policy = settings.policy] { return policy.getIDSSignalTimeout(); });
  _ledger = &context.shared.ledger;
  openLedger(context);
  AgentRun::current().keep(ids);
  AgentConfig::setHIDSInterface(ids.get());
  _localService = startLocalService(context);
}

void Composition::endLocalService() {
  if (!_localService) return;
  stopStep("local channel", [this] { _localService->stop(); });
  stopStep("wait for the local channel", [this] { _localService->waitEnded(kServiceEndMs); });
  Thread::dispose(std::exchange(_localService, nullptr));
}

Composition::~Composition() {
  tearDown();
}

// A thread that was left behind keeps its run, and so the store and the IDS component, for
// as long as it lives.
void Composition::tearDown() noexcept {
  stopStep("local channel", [this] { endLocalService(); });
  stopStep("source of addresses", [this] {
    if (!_connection) return;
    _connection->setLocalAddressSource(nullptr);
    _connection->setStatusAddition({});
  });
  // The run, and its ledger, may outlive the agent.
  stopStep("loss ledger", [this] {
    if (_ledger) _ledger->close();
  });
  if (Thread::abandoned() > 0) return;
  AgentConfig::setHIDSInterface(nullptr);
  stopStep("connections", [] { HttpsHandler::curlCleanup(); });
  stopStep("settings store", [] { AgentConfig::freeInstance(); });
}

}  // namespace korvane
