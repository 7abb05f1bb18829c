// The search for the names of the IDS component's two logs. The component may come up after the
// agent, so each name is retried repeatedly for a while; the two are looked for independently.
//
// The caller makes the attempts, kIntervalMs apart, until done(); so a stop ends the search with
// the caller's wait. One thread. A name that is found goes to the settings.
#pragma once

#include <cstdint>

#include "config/log_type.h"

namespace korvane {

class HidsInterface;
class LogSettings;

class IdsLogSearch {
 public:
  // component: null when there is none; the names are not found then. Both outlive the search.
  IdsLogSearch(HidsInterface* component, LogSettings& settings)
      : _component(component), _settings(settings) {}

  static constexpr uint32_t kIntervalMs = 250;
  static constexpr int kAttempts = 480;

  bool done() const { return _names[0].done && _names[1].done; }
  // One attempt for each name that is not known yet.
  void attempt();

 private:
  struct Name {
    LogType type;
    bool done = false;
  };
  void attempt(Name& name);
  void reportMissing(const Name& name) const;

  HidsInterface* const _component;
  LogSettings& _settings;
  Name _names[2] = {{HIDS_RT_LOG}, {HIDS_LOG}};
  int _attempts = 0;
};

}  // namespace korvane
