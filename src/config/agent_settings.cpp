#include "config/agent_settings.h"

#include "util/ignore_result.h"

namespace korvane {

AgentSettings::AgentSettings(const Surroundings& of)
    : store(of.store),
      server(store),
      policy(store, of.registry),
      logs(store),
      updates(store),
      machine(store, of.store.files, of.store.clock, of.systemInfo),
      file(store) {}

void AgentSettings::open() {
  const ChangeGroup group(store);
  const auto beginRun = [this] {
    store.beginWriting();
    // What the files hold at the start is no news to the driver and the server.
    policy.updatedDriverForBuiltIn();
    policy.setPolicyErrorChanged(false);
  };
  try {
    // Without the file the settings stay as they are; the failure has been told.
    ignoreResult(file.loadIniFile());
  } catch (...) {
    // The object is there for others already; the next load of it reads the files.
    beginRun();
    throw;
  }
  beginRun();
}

}  // namespace korvane
