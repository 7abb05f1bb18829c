// getTechStatus, getTechNames, getAgentVersion and getStatus.
#include "cloud/agent_status.h"
#include "cloud/local_methods.h"
#include "platform/clock.h"

#include <memory>
#include <optional>

#include "platform/platform.h"

namespace korvane {
namespace {

// What a client that asks again and again gets without the logs being read each time.
class RecentLogs {
 public:
  const JsonTree& get() {
    const int64_t now = platform::current().clock.monotonicMs();
    if (_takenAt && now - *_takenAt <= kKeptMs) return _logs;
    _logs = logsTree();
    _takenAt = platform::current().clock.monotonicMs();
    return _logs;
  }

 private:
  static constexpr int64_t kKeptMs = 5000;
  JsonTree _logs;
  std::optional<int64_t> _takenAt;  // monotonic
};

void addText(RPCServer& server, const char* method, const char* member,
             const std::function<std::string()>& text) {
  server.add(method, RPCServer::Access::everyone,
             [member, &text](const RPCRequest&, RPCResponse& response) {
               putMember(response.result, member, text());
             });
}

}  // namespace

void addStateMethods(RPCServer& server, const AboutAgent& about) {
  addText(server, "getTechStatus", "status", about.techStatus);
  addText(server, "getTechNames", "names", about.techNames);
  addText(server, "getAgentVersion", "version", about.version);
  server.add(
      "getStatus", RPCServer::Access::everyone,
      [&about, logs = std::make_shared<RecentLogs>()](const RPCRequest&, RPCResponse& response) {
        response.result = statusTree(about, logs->get());
      });
}

void addLocalMethods(RPCServer& server, const AboutAgent& about) {
  addStateMethods(server, about);
  addSettingsMethods(server);
  addPolicyMethods(server);
  addConnectionMethods(server);
  addLogMethods(server);
  addDiagnosticsMethods(server, about);
}

}  // namespace korvane
