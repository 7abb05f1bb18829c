// A simulated machine with a registered agent's settings, a driver, the local channel's service on
// a thread of its own, and a client of it.
#pragma once

#include <cstring>
#include <string>
#include <vector>

#include "agent/agent_context.h"
#include "agent/agent_factory.h"
#include "agent/thread/thread.h"
#include "eventlog/event_log.h"
#include "platform/platform.h"
#include "rpc/pipe_names.h"
#include "rpc/rpc_client.h"
#include "tests/support/simulated_agent.h"

namespace korvane::tests {

class ChannelWorld {
 public:
  static constexpr int kLongMs = 40000;
  static constexpr char kGuid[] = "0123456789abcdef";

  explicit ChannelWorld(const std::string& serviceType = "1")
      : machine({.serviceType = serviceType,
                 .settings = std::string("agent.id=") + kGuid +
                             "\n[Driver]\npolicy.name=Base 3\npolicy.id=id-9\n"
                             "[AgentLog]\nagentlog.log.trace.messages=true\n"}) {
    machine.fake.files.put("/opt/korvane/IPS/kav-version.properties", kVersion);
    machine.fake.devices.setOpenError(0);
    machine.fake.devices.setHandler([](const platform::FakeDevices::Call&) {
      return platform::DeviceScript::atOnce(0, appliedPolicy());
    });
    eventlog::Settings log;
    log.directory = "/opt/korvane/IPS/logs/";
    log.cataloguePath = "/opt/korvane/IPS/korvane-events.txt";
    log.tracing = true;
    machine.fake.files.put(log.cataloguePath,
                           "10600 AERR The local command channel cannot be served: error %1.\n");
    eventlog::EventLog::reconfigure(log);
    readServiceType();
    _service.reset(makeLocalService(contextOfRun()));
    _service->start();
    machine.sim.runFor(1);
  }
  ~ChannelWorld() { endService(); }

  // Simulated milliseconds until the service's thread has ended.
  int64_t endService() {
    const int64_t before = machine.now();
    if (_service) {
      _service->stop();
      _service->waitEnded(60000);
    }
    _service.reset();
    return machine.now() - before;
  }
  bool serving() { return _service->isAlive(); }

  // The error's code of a call, and what it says; 0 for an answer.
  int codeOf(const char* method, const char* params, std::string* detail = nullptr) {
    try {
      result = call(method, params).result;
      return 0;
    } catch (const RPCCallError& error) {
      if (detail) *detail = error.detail();
      return error.code();
    }
  }
  RPCResponse call(const char* method, const char* params = "{}") {
    JsonTree tree;
    parseJson(params, tree);
    return client.call(method, tree, kLongMs);
  }

  // The answer to a request whose parameters stand on the wire as they are given.
  std::string askRaw(const std::string& method, const std::string& params) {
    std::string answer;
    Fifo pipe(machine.fake.pipes, machine.sim.clock(), kLocalPipe);
    // The service may still be letting the client before go.
    for (int i = 0; i < 100 && !pipe.open(); ++i) machine.sim.runFor(50);
    const bool sent = pipe.isOpen() && pipe.writeMessage(R"({"jsonrpc":"2.0","name":")" + method +
                                                             R"(","params":)" + params + "}",
                                                         kLongMs);
    return sent && pipe.readMessage(answer, kLongMs, kLongMs) ? answer : "no answer";
  }

  SimulatedMachine machine;
  AgentConfig& config = *AgentConfig::getInstance();
  RPCClient client{machine.fake.pipes, machine.sim.clock(), kLocalPipe};
  JsonTree result;

 private:
  static constexpr char kVersion[] = "version=7.1.0\nbuild.number=123\n";

  static std::vector<std::byte> appliedPolicy() {
    std::vector<std::byte> record(1028);
    std::memcpy(record.data() + 4, u"Base", 8);
    std::memcpy(record.data() + 260, u"3", 2);
    std::memcpy(record.data() + 516, u"id-9", 8);
    return record;
  }
  std::unique_ptr<Thread> _service;
};

}  // namespace korvane::tests
