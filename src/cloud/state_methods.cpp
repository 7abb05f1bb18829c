// getTechStatus, getTechNames, getAgentVersion and getStatus.
#include <memory>
#include <optional>

#include "cloud/agent_status.h"
#include "cloud/local_methods.h"
#include "platform/clock.h"

namespace korvane {
namespace {

// What a client that asks again and again gets without the logs being read each time.
class RecentLogs {
 public:
  const JsonTree& get(const LocalParts& parts) {
    const int64_t now = parts.clock.monotonicMs();
    if (_takenAt && now - *_takenAt <= kKeptMs) return _logs;
    _logs = logsTree(parts);
    _takenAt = parts.clock.monotonicMs();
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

void addStateMethods(RPCServer& server, const AboutAgent& about, const LocalParts& parts) {
  addText(server, "getTechStatus", "status", about.techStatus);
  addText(server, "getTechNames", "names", about.techNames);
  addText(server, "getAgentVersion", "version", about.version);
  server.add("getStatus", RPCServer::Access::everyone,
             [&about, &parts, logs = std::make_shared<RecentLogs>()](const RPCRequest&,
                                                                     RPCResponse& response) {
               response.result = statusTree(about, parts, logs->get(parts));
             });
}

void addLocalMethods(RPCServer& server, const AboutAgent& about, const LocalParts& parts) {
  addStateMethods(server, about, parts);
  addSettingsMethods(server, parts);
  addPolicyMethods(server, parts);
  addConnectionMethods(server, parts);
  addLogMethods(server, parts);
  addDiagnosticsMethods(server, about, parts);
}

}  // namespace korvane
