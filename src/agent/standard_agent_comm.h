// Enrolment with a management server.
//
// registerAgent() sends the built-in policy along, retries every 20 seconds after a failure that
// may pass, for as long as it takes, and stores the identity that the server assigns. It reports
// failure in one case only: an exchange that took place and left no identity.
//
// Stop: stop(), or the run's shutdown token, whichever comes first, ends pauses and
// exchanges at once. An exchange that a stop cut short counts as stopped, whatever it
// returned: the step answers true.
#pragma once

#include <optional>
#include <string>

#include "agent/thread/stop_token.h"
#include "comm/agent_comm.h"
#include "platform/fwd.h"

namespace korvane {

class Driver;
class HttpsHandler;
class PolicySettings;
class ServerConnection;
class ServerSettings;
class SettingsFile;

class StandardAgentComm : public AgentComm {
 public:
  // What it uses; all of it outlives this object.
  struct Parts {
    ServerSettings& server;
    PolicySettings& policy;
    SettingsFile& file;
    platform::Files& files;
    ServerConnection& connection;
    Driver& driver;
  };
  explicit StandardAgentComm(const Parts& parts);

  bool testConnection() override;
  bool registerAgent(uint8_t& builtinReported) override;
  void reportPolicyState() override;
  void stop() override;

  static constexpr uint32_t kRetryPauseMs = 20000;

 private:
  enum class Attempt { retry, finished };
  [[nodiscard]] Attempt attempt(HttpsHandler& handler, const std::optional<std::string>& policy);
  [[nodiscard]] bool keepIdentity(HttpsHandler& handler);

  // The run's token is asked too: it ends an exchange before it has told this component's.
  bool stopped() const { return _stop.requested() || shutdownToken().requested(); }

  const Parts _parts;
  StopToken _stop;
  StopCallback _onShutdown;
};

}  // namespace korvane
