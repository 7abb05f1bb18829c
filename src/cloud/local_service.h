// The local command channel of the agent: serves kLocalPipe on a thread of its own. docs/rpc.md has
// every method with its parameters, its answer and who may call it.
//
// Lifetime: made and started by the composition root when the settings and the agent's own log are
// there, and gone before them; what `about` and the parts refer to outlives the object. Serves from
// start() to stop(), or until the run's shutdown token is set: then every wait ends at once, and a
// method that runs is cut short by that token itself (docs/rpc.md, "When the agent stops").
// Threads: methods run on the service's own thread, one at a time.
// Errors: a pipe that cannot be made is event 10600 and is retried every five seconds.
//
//   Thread* service = new LocalService(about, pipes, parts);
//   service->start();
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "agent/thread/thread.h"
#include "discovery/app_data_requests.h"
#include "platform/fwd.h"

namespace korvane {

class Driver;
class ForwardingCounters;
class LogSettings;
class LossLedger;
class PolicySettings;
class ServerConnection;
class ServerSettings;
class SettingsFile;

// What the service tells of the agent and cannot know itself. The functions are called by
// its thread.
struct AboutAgent {
  std::function<std::string()> techStatus, techNames, version;
  std::function<bool()> started, shuttingDown;
  uint64_t processId = 0;
  int64_t startedWallMs = 0;
  int64_t startedMonotonicMs = 0;
};

struct LocalAppData {
  AppDataSettings settings;
  AppDataRequests& requests;
  bool keepsResults;  // they are fetched over the channel: there is no server
};

// What the methods of the channel read and change.
struct LocalParts {
  platform::Files& files;
  platform::Clock& clock;
  platform::SystemInfo& systemInfo;
  const ServerSettings& server;
  const PolicySettings& policy;
  const LogSettings& logs;
  SettingsFile& settings;
  Driver& driver;
  ServerConnection& connection;
  const ForwardingCounters& counters;
  const LossLedger& ledger;
  LocalAppData applicationData;
};

class LocalService : public Thread {
 public:
  LocalService(AboutAgent about, platform::Pipes& pipes, const LocalParts& parts);

 protected:
  void run() override;

 private:
  const AboutAgent _about;
  platform::Pipes& _pipes;
  const LocalParts _parts;
};

}  // namespace korvane
