// A simulated machine with an agent's settings, the cloud command channel on a thread of
// its own and a connector of it, the translator stand-in's own code as translator, and a
// driver that loads what that makes.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "agent/agent_context.h"
#include "agent/agent_factory.h"
#include "agent/thread/thread.h"
#include "platform/platform.h"
#include "rpc/pipe_names.h"
#include "rpc/rpc_client.h"
#include "stand-in-policy/policy_model.h"
#include "tests/support/simulated_agent.h"
#include "translate-stand-in/source_policy.h"
#include "update/policy/policy_parts.h"

namespace korvane::tests {

class CloudWorld {
 public:
  static constexpr int kLongMs = 100000;

  explicit CloudWorld(const std::string& type = "2") : machine({.serviceType = type}) {
    constexpr char kParameters[] = "System\\CurrentControlSet\\Services\\KAVIPSDriver\\Parameters";
    machine.fake.registry.put(kParameters, "UseBuiltin", STRING("0"));
    machine.fake.registry.put(kParameters, "Filter File", STRING());
    machine.fake.devices.setOpenError(0);
    machine.fake.devices.setHandler(
        [this](const platform::FakeDevices::Call& call) { return drive(call); });
    machine.fake.processes.install(
        "/opt/korvane/IPS/bin/" + machine.fake.processes.fileName("translate"),
        [this](const std::string& arguments) { return translate(arguments); });
    start();
  }
  ~CloudWorld() { stop(); }

  void start() {
    _thread.reset(makeComm(contextOfRun(), nullptr));
    _thread->start();
    machine.sim.runFor(1);
  }
  // Simulated milliseconds until the channel's thread has ended.
  int64_t stop() {
    const int64_t before = machine.now();
    if (!_thread) return 0;
    _thread->stop();
    _thread->waitEnded(60000);
    if (_holder) _holder->join(platform::kInfinite);
    _thread.reset();
    return machine.now() - before;
  }

  // Another thread works on policies until the agent stops.
  void holdTurn() {
    _holder = machine.sim.createThread(0, [] {
      const PolicyParts parts = policyPartsOfRun();
      const PolicyTurn turn(parts.shared.turns, parts.stop);
      shutdownToken().sleepFor(platform::kInfinite);
    });
    machine.sim.runFor(10);
  }

  // The error's code of a call, and what it says; 0 for an answer.
  int codeOf(const std::string& method, const std::string& params, std::string* detail = nullptr) {
    JsonTree tree;
    parseJson(params, tree);
    try {
      result = connector.call(method, tree, kLongMs).result;
      return 0;
    } catch (const RPCCallError& error) {
      if (detail) *detail = error.detail();
      return error.code();
    }
  }

  SimulatedMachine machine;
  AgentConfig& config = *AgentConfig::getInstance();
  RPCClient connector{machine.fake.pipes, machine.sim.clock(), kCloudPipe};
  JsonTree result;
  std::string driverPolicy;  // the text that it has
  uint32_t translatorRunMs = 0;
  size_t translations = 0;
  bool refusesBuiltIn = false;
  bool overlapped = false;  // a translation began before another had ended

 private:
  platform::ProgramRun translate(const std::string& arguments) {
    using namespace translate_stand_in;
    std::vector<std::string> quoted;
    for (size_t at = 0; (at = arguments.find('"', at)) != std::string::npos;) {
      const size_t end = arguments.find('"', at + 1);
      quoted.push_back(arguments.substr(at + 1, end - at - 1));
      at = end + 1;
    }
    ++translations;
    overlapped = overlapped || machine.now() < _translatesUntil;
    _translatesUntil = machine.now() + translatorRunMs;
    const std::string& plus = quoted[quoted.size() - 3];
    Source source;
    Translation made;
    MachineState state({machine.fake.files, machine.fake.registry, machine.fake.systemInfo});
    if (unpackPolicy(plus, machine.fake.files.content(plus), source, made.problem))
      made = SourcePolicy(state, {}, Target::driver).translate(source);
    const bool good = made.problem.empty();
    machine.fake.files.put(quoted[quoted.size() - 2], good ? made.policy : made.problem);
    if (good) machine.fake.files.put(quoted.back(), retransItemsText(made.items));
    return {good ? 0u : 1u, translatorRunMs};
  }

  platform::DeviceScript drive(const platform::FakeDevices::Call& call) {
    std::vector<std::byte> output;
    if (call.controlCode == KAVIPS_USE_BUILTIN && refusesBuiltIn)
      return platform::DeviceScript::atOnce(31);
    if (call.controlCode == KAVIPS_LOAD_POLICY) {
      std::string path;
      for (size_t i = 0; i + 3 < call.input.size(); i += 2)
        path += static_cast<char>(call.input[i]);
      driverPolicy = machine.fake.files.content(path);
    }
    if (call.controlCode == KAVIPS_QUERY_POLICY) {
      output.resize(KAVIPS_POLICY_RECORD_BYTES);
      putLine(output, KAVIPS_POLICY_NAME_OFFSET, "name ");
      putLine(output, KAVIPS_POLICY_VERSION_OFFSET, "version ");
      putLine(output, KAVIPS_POLICY_ID_OFFSET, "id ");
    }
    return platform::DeviceScript::atOnce(0, output);
  }
  void putLine(std::vector<std::byte>& record, size_t offset, const std::string& word) {
    const size_t at = driverPolicy.find("\n" + word);
    if (at == std::string::npos) return;
    for (size_t i = at + 1 + word.size(); i < driverPolicy.size() && driverPolicy[i] != '\n';
         ++i, offset += 2)
      record[offset] = static_cast<std::byte>(driverPolicy[i]);
  }

  int64_t _translatesUntil = 0;
  std::unique_ptr<Thread> _thread;
  std::unique_ptr<platform::NativeThread> _holder;
};

}  // namespace korvane::tests
