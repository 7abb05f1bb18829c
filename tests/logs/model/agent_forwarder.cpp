// The agent's own forwarding behind the model's interface: its thread's cycles, processor,
// destinations and the look at the component's settings are the real ones; libcurl, the
// carrier, and all waits are scripted.
//
// The settings are set while the platform shows another disk, so that what happens to the
// model's is forwarding alone.
#include <optional>
#include <stdexcept>

#include "agent/thread/stop_token.h"
#include "comm/https_handler.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/service_type.h"
#include "ids/hids_component.h"
#include "logs/https_log_destination.h"
#include "logs/log_processing_thread.h"
#include "logs/rpc_log_destination.h"
#include "platform/fake/fake_platform.h"
#include "platform/fake/forwarding_files.h"
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

// The disk of the model, except for the files of the settings.
class ForwardingDisk final : public platform::ForwardingFiles {
 public:
  ForwardingDisk(platform::Files& model, platform::Files& settings)
      : ForwardingFiles(model), _settings(settings) {}
  int open(const std::string& path, platform::OpenMode mode,
           std::unique_ptr<platform::File>& out) override {
    return of(path).open(path, mode, out);
  }
  int lock(const std::string& path, std::unique_ptr<platform::FileLock>& out) override {
    return of(path).lock(path, out);
  }
  int info(const std::string& path, platform::FileInfo& out) override {
    return of(path).info(path, out);
  }
  int replace(const std::string& from, const std::string& to) override {
    return of(to).replace(from, to);
  }
  int remove(const std::string& path) override { return of(path).remove(path); }

 private:
  platform::Files& of(const std::string& path) {
    for (const char* name : {"/agent.ini", "/fallback.ini", "/lockFile"})
      if (path.find(name) != std::string::npos) return _settings;
    return _to;
  }
  platform::Files& _settings;
};

class AgentForwarder final : public Forwarder {
 public:
  AgentForwarder(Machine& machine, Receiver& receiver) : _machine(machine), _receiver(receiver) {
    _atOnce.request();
  }
  ~AgentForwarder() override { end(); }

  void start(const Settings& settings) override {
    platform::Platform& fake = surroundings().platform();
    _run.emplace(fake);
    setInstallRoot(_machine.installRoot());
    setServiceType(settings.serviceType);
    LogProcessingThread::setPolicyBuffer(settings.serviceType != 1);
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
    _disk.emplace(_machine.files(), fake.files);
    _platform.emplace(platform::Platform{_machine.clock, fake.threading, *_disk, fake.registry,
                                         fake.devices, fake.processes, fake.sockets,
                                         fake.systemInfo, fake.sharedLibraries, fake.pipes});
    _other.emplace(*_platform);
    _component.emplace(HidsComponent::Surroundings{*_disk, _machine.clock, shutdownToken()},
                       platform::joinPath(_machine.files(), {_machine.installRoot(), "IDS"}),
                       [] { return 0; });
    AgentConfig::setHIDSInterface(&*_component);
    if (settings.serviceType == 1) {
      HttpsHandler::setTransport(std::make_unique<ScriptedTransport>(_receiver));
    }
    auto processor = std::make_unique<LogProcessor>(HIDS_RT_LOG, destination(settings));
    _processor = processor.get();
    _thread = std::make_unique<LogProcessingThread>();
    _thread->attach(std::move(processor));
    _processor->setStopToken(_atOnce);
    _search.emplace();
    _search->attempt();
  }

  void pass() override {
    for (int cycle = 0; cycle < 2; ++cycle) {
      _thread->cycle();
      if (!_search->done()) _search->attempt();
    }
    _processor->tend();
    if (AgentConfig::getInstance()->registered()) return;
    const platform::OtherPlatform settings(surroundings().platform());
    AgentConfig::getInstance()->setUniqueId(kIdentifier);
  }

  void kill() override { end(); }
  void stop() override { end(); }

 private:
  static constexpr char kIdentifier[] = "guid-1";

  std::unique_ptr<LogDestination> destination(const Settings& settings) {
    if (settings.serviceType == 1) return std::make_unique<HttpsLogDestination>();
    return std::make_unique<RpcLogDestination>(std::make_unique<ScriptedCarrier>(_receiver, _waits),
                                               _waits, LogProcessingThread::forwardingPossible);
  }

  void end() {
    _thread.reset();
    _processor = nullptr;
    _component.reset();
    _other.reset();
    _run.reset();
  }

  Machine& _machine;
  Receiver& _receiver;
  platform::ManualClock _waits;  // moved by what the agent waits for the carrier
  StopToken _atOnce;             // ends the pause between two tries to remove a file
  std::optional<ForwardingDisk> _disk;
  std::optional<platform::Platform> _platform;
  std::optional<platform::CurrentPlatform> _run;
  std::optional<platform::OtherPlatform> _other;
  std::optional<HidsComponent> _component;
  std::unique_ptr<LogProcessingThread> _thread;
  LogProcessor* _processor = nullptr;
  std::optional<IdsLogSearch> _search;
};

}  // namespace

std::unique_ptr<Forwarder> makeAgentForwarder(Machine& machine, Receiver& receiver) {
  return std::make_unique<AgentForwarder>(machine, receiver);
}

}  // namespace korvane::log_model
