// The agent's own forwarding behind the model's interface: its thread's cycles, processor,
// destinations and the look at the component's settings are the real ones; libcurl, the
// carrier, and all waits are scripted. The settings lie on another disk than the model's, so that
// what happens to that is forwarding alone.
#include <optional>
#include <stdexcept>

#include "agent/thread/stop_token.h"
#include "comm/https_handler.h"
#include "comm/server_connection.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/service_type.h"
#include "config/settings.h"
#include "ids/hids_component.h"
#include "ledger/loss_ledger.h"
#include "logs/forwarding_counters.h"
#include "logs/https_log_destination.h"
#include "logs/log_processing_thread.h"
#include "logs/rpc_log_destination.h"
#include "platform/fake/fake_platform.h"
#include "platform/paths.h"
#include "tests/logs/model/agent_carrier.h"
#include "tests/logs/model/agent_transport.h"

namespace korvane::log_model {
namespace {

// What all schedules of the program share: the capabilities that the model leaves alone.
platform::FakePlatform& surroundings() {
  static platform::FakePlatform fake;
  return fake;
}

class AgentForwarder final : public Forwarder {
 public:
  AgentForwarder(Machine& machine, Receiver& receiver) : _machine(machine), _receiver(receiver) {
    _atOnce.request();
  }
  ~AgentForwarder() override { end(); }

  void start(const Settings& settings) override {
    _run.emplace(surroundings().platform());
    setInstallRoot(_machine.installRoot());
    setServiceType(settings.serviceType);
    _forwarding.setPolicyBuffer(settings.serviceType != 1);
    AgentConfig& config = *AgentConfig::getInstance();
    {
      const AgentConfig::ChangeGroup group(config);
      config.setMaxMessagesToRead(settings.readerLimit);
      config.setMaxBatchSize(settings.writerLimit);
      config.setConsolidateLogs(settings.consolidate);
      config.setLogConsolidatePeriod(static_cast<uint32_t>(settings.consolidateMinutes));
      config.setURL("https://127.0.0.1:8443/agent/");
      config.setUniqueId(kIdentifier);
    }
    _component.emplace(
        HidsComponent::Surroundings{_machine.files(), _machine.clock, shutdownToken()},
        platform::joinPath(_machine.files(), {_machine.installRoot(), "IDS"}), [] { return 0; });
    _counters.emplace(_machine.clock);
    _ledger.emplace(_machine.files(), _machine.clock);
    _ledger->open(
        platform::joinPath(_machine.files(), {_machine.installRoot(), "IPS", "lossledger"}));
    if (settings.serviceType == 1) {
      HttpsHandler::setTransport(std::make_unique<ScriptedTransport>(_receiver));
    }
    const korvane::Settings sections = settingsOf(config);
    const ForwardingParts parts{_machine.files(), _machine.clock, shutdownToken(), sections.logs,
                                sections.machine, &*_component,   *_counters,      *_ledger};
    auto processor =
        std::make_unique<LogProcessor>(HIDS_RT_LOG, parts, destination(settings, sections.server));
    _processor = processor.get();
    _thread = std::make_unique<LogProcessingThread>(_forwarding, &*_component, sections.logs);
    _thread->attach(std::move(processor));
    _processor->setStopToken(_atOnce);
    _search.emplace(&*_component, sections.logs);
    _search->attempt();
  }

  void pass() override {
    for (int cycle = 0; cycle < 2; ++cycle) {
      _thread->cycle();
      if (!_search->done()) _search->attempt();
    }
    _processor->tend();
    AgentConfig& config = *AgentConfig::getInstance();
    if (!config.registered()) config.setUniqueId(kIdentifier);
  }

  LedgerView ledger() const override { return _ledger->view(); }
  void kill() override { end(); }
  void stop() override { end(); }

 private:
  static constexpr char kIdentifier[] = "guid-1";

  std::unique_ptr<LogDestination> destination(const Settings& settings, ServerSettings& server) {
    if (settings.serviceType == 1)
      return std::make_unique<HttpsLogDestination>(currentConnection(), server, *_counters);
    return std::make_unique<RpcLogDestination>(
        std::make_unique<ScriptedCarrier>(_receiver, _waits),
        RpcLogDestination::Parts{_waits, shutdownToken(), *_counters,
                                 [this] { return _forwarding.mayForward(); }});
  }

  void end() {
    _thread.reset();
    _processor = nullptr;
    _component.reset();
    _run.reset();
  }

  Machine& _machine;
  Receiver& _receiver;
  platform::ManualClock _waits;  // moved by what the agent waits for the carrier
  StopToken _atOnce;             // ends the pause between two tries to remove a file
  std::optional<platform::CurrentPlatform> _run;
  std::optional<HidsComponent> _component;
  std::optional<ForwardingCounters> _counters;
  std::optional<LossLedger> _ledger;
  ForwardingSwitch _forwarding;
  std::unique_ptr<LogProcessingThread> _thread;
  LogProcessor* _processor = nullptr;
  std::optional<IdsLogSearch> _search;
};

}  // namespace

std::unique_ptr<Forwarder> makeAgentForwarder(Machine& machine, Receiver& receiver) {
  return std::make_unique<AgentForwarder>(machine, receiver);
}

}  // namespace korvane::log_model
