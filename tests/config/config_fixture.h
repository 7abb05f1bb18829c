// An AgentConfig over files in memory and simulated time.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "agent/thread/stop_token.h"
#include "config/agent_config.h"
#include "config/ini_text.h"
#include "config/install_root.h"
#include "platform/fake/fake_platform.h"
#include "platform/fake/faulty_files.h"
#include "util/sha256.h"

namespace korvane {

inline constexpr char kAgentIni[] = "/opt/agent/IPS/agent.ini";
inline constexpr char kFallbackIni[] = "/opt/agent/IPS/fallback.ini";
inline constexpr char kLockFile[] = "/opt/agent/IPS/lockFile";

inline std::string withChecksum(const std::string& text) {
  return text + "[Checksum]\nagentini.checksum=" + sha256Hex(text) + "\n";
}

class ConfigFixture : public testing::Test {
 protected:
  ConfigFixture() {
    setInstallRoot("/opt/agent");
    fake.files.makeDirectories("/opt/agent/IPS");
  }
  // A further start of the agent on the same machine.
  void beginRun() {
    _current.reset();
    _current.emplace(_system);
    setInstallRoot("/opt/agent");
  }

  AgentConfig& config() { return *AgentConfig::getInstance(); }
  AgentConfig& restart() {
    AgentConfig::freeInstance();
    return config();
  }
  // Another program's change, a moment later.
  void put(const std::string& path, const std::string& bytes) {
    sim.runFor(5);
    fake.files.put(path, bytes);
  }
  std::vector<std::string> damagedCopies() {
    std::vector<std::string> copies = fake.files.paths();
    std::erase_if(copies, [](const auto& path) { return path.find(".damaged-") == path.npos; });
    return copies;
  }
  int writes() { return files.count(platform::FileOperation::replace); }

  platform::SimThreading sim{7};
  platform::FakePlatform fake{sim};
  platform::FaultyFiles files{fake.files};

 private:
  platform::Platform& _base = fake.platform();
  platform::Platform _system{_base.clock,    _base.threading,  files,
                             _base.registry, _base.devices,    _base.processes,
                             _base.sockets,  _base.systemInfo, _base.sharedLibraries,
                             _base.pipes,    _base.rights};
  std::optional<platform::CurrentPlatform> _current{_system};
};

}  // namespace korvane
