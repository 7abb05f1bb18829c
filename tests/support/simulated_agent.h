// A machine of fakes on simulated threads and time, with an installed agent and a scripted server,
// for tests of one agent in one process. The agent's own log is written with tracing on.
//
//   SimulatedMachine machine({.serviceType = "1", .settings = "[Polling]\npolling.interval=5\n"});
//   machine.sim.runFor(60000);
//   EXPECT_EQ(machine.lines("MainThread"), ...);
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "agent/thread/stop_token.h"
#include "config/agent_config.h"
#include "config/install_root.h"
#include "config/service_type.h"
#include "driver/driver_protocol.h"
#include "eventlog/event_log.h"
#include "eventlog/event_log_file.h"
#include "platform/fake/fake_platform.h"
#include "tests/support/scripted_server.h"

namespace korvane::tests {

struct MachineOptions {
  std::string serviceType = "1";
  std::string settings = "";  // lines added to agent.ini
  uint64_t seed = 1;
  std::string url = "https://127.0.0.1:8443/korvane/agent/";
  bool ownLog = true;  // false: for a test that starts the agent whole, which opens its log itself
};

class SimulatedMachine {
 public:
  static constexpr char kRoot[] = "/opt/korvane";
  static constexpr char kIni[] = "/opt/korvane/IPS/agent.ini";

  explicit SimulatedMachine(const MachineOptions& options = {}) : sim(options.seed), fake(sim) {
    setInstallRoot(kRoot);
    fake.files.put(kIni, "[Agent]\nagent.http.url=" + options.url + "\n" + options.settings);
    fake.registry.put(kAgentRegistryKey, "AgentType", STRING(options.serviceType));
    fake.registry.put(kAgentRegistryKey, "InstallRoot", STRING(kRoot));
    readServiceType();
    fake.devices.setOpenError(platform::kErrorFileNotFound);
    if (options.ownLog) openLog();
  }

  // A further start of the agent on this machine: the run of the process from now on, with nothing
  // in it but the connection to the server.
  void beginRun(platform::Platform& platform) {
    _current.reset();
    _current.emplace(platform);
    server.serveThisRun();
  }
  void beginRun() { beginRun(fake.platform()); }

  // The messages of the agent's own log, in order; of one tag alone when it is not empty.
  std::vector<std::string> lines(const std::string& needle = "") {
    std::vector<std::string> found;
    for (const std::string& path : fake.files.paths()) {
      if (!path.starts_with(kLogs)) continue;
      std::istringstream text(fake.files.content(path));
      for (std::string line; std::getline(text, line);)
        if (line.find(needle) != std::string::npos) found.push_back(line);
    }
    return found;
  }
  size_t countLines(const std::string& needle) { return lines(needle).size(); }
  // Where a line with the text stands in the log; -1 when there is none.
  int position(const std::string& needle) {
    const std::vector<std::string> all = lines();
    for (size_t i = 0; i < all.size(); ++i)
      if (all[i].find(needle) != std::string::npos) return static_cast<int>(i);
    return -1;
  }
  std::string ini() { return fake.files.content(kIni); }
  int64_t now() { return sim.clock().monotonicMs(); }

  platform::SimThreading sim;
  platform::FakePlatform fake;

 private:
  static constexpr char kLogs[] = "/opt/korvane/IPS/logs/";

  void openLog() {
    eventlog::Settings log;
    log.directory = kLogs;
    log.tracing = true;
    eventlog::EventLog::open(log, fake.files, fake.platform().clock);
  }

  std::optional<platform::CurrentPlatform> _current{fake.platform()};

 public:
  ScriptedServer server;
};

}  // namespace korvane::tests
