// config_writer ROOT NAME COUNT: writes NAME.a and NAME.b, always equal, COUNT times into the
// agent.ini of ROOT. Exit status 0 when both ended in the file.
#include <cstdlib>

#include "config/agent_config.h"
#include "config/install_root.h"
#include "platform/fake/current_platform.h"
#include "tests/config/short_waits.h"

int main(int argc, char** argv) {
  using namespace korvane;
  if (argc != 4) return 2;
  const auto native = platform::makeNativePlatform({});
  platform::Platform& base = native->platform();
  ShortWaits waits(base.threading);
  platform::Platform system{base.clock,           waits,          base.files,   base.registry,
                            base.devices,         base.processes, base.sockets, base.systemInfo,
                            base.sharedLibraries, base.pipes,     base.rights};
  const platform::CurrentPlatform current(system);
  setInstallRoot(argv[1]);
  AgentConfig& config = *AgentConfig::getInstance();
  const STRING name(argv[2]);
  const int count = std::atoi(argv[3]);
  for (int i = 1; i <= count; ++i) {
    const AgentConfig::ChangeGroup group(config);
    config.setValue(name + ".a", STRING::fromInt(i));
    config.setValue(name + ".b", STRING::fromInt(i));
  }
  bool written = false;
  for (int i = 0; i < 1000 && !written; ++i) written = config.UpdateAllIni();
  return written ? 0 : 1;
}
