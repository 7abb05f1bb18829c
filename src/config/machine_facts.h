// What the agent knows about itself and this machine, and what it tells of both at registration.
// Looked up when it is first asked for and kept. Threads: as AgentConfig has them.
#pragma once

#include <cstdint>

#include "agent/thread/locks.h"
#include "platform/fwd.h"
#include "util/property_list.h"
#include "util/string.h"
#include "util/thread_annotations.h"

namespace korvane {

class SettingsStore;

class MachineFacts {
 public:
  MachineFacts(const SettingsStore& store, platform::Files& files, platform::Clock& clock,
               platform::SystemInfo& systemInfo)
      : _store(store), _files(files), _clock(clock), _systemInfo(systemInfo) {}

  STRING getKorvaneVersion() const;
  STRING getHostname() const;
  STRING getIPAddress() const;  // the first one; looked up again after five minutes
  STRING getOS() const;
  // What the agent says about itself at registration, and its settings that the server manages.
  PropertyList getAttributes() const;
  PropertyList getConfiguration() const;

 private:
  const SettingsStore& _store;
  platform::Files& _files;
  platform::Clock& _clock;
  platform::SystemInfo& _systemInfo;

  mutable Win32Mutex _lock;
  mutable STRING _version GUARDED_BY(_lock);
  mutable STRING _hostName GUARDED_BY(_lock);
  mutable STRING _osDescription GUARDED_BY(_lock);
  mutable STRING _ipAddress GUARDED_BY(_lock);
  mutable int64_t _ipAddressUntilMs GUARDED_BY(_lock) = 0;
};

}  // namespace korvane
