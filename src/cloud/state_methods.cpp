// getTechStatus, getTechNames, getAgentVersion and getStatus.
#include <memory>

#include "cloud/agent_status.h"
#include "cloud/local_methods.h"
#include "cloud/recent_logs.h"

namespace korvane {
namespace {

void addText(RPCServer& server, const char* method, const char* member,
             const std::function<std::string()>& text) {
  server.add(method, RPCServer::Access::everyone,
             [member, &text](const RPCRequest&, RPCResponse& response) {
               putMember(response.result, member, text());
             });
}

}  // namespace

void addStateMethods(RPCServer& server, const AboutAgent& about, const LocalParts& parts,
                     const std::shared_ptr<RecentLogs>& logs) {
  addText(server, "getTechStatus", "status", about.techStatus);
  addText(server, "getTechNames", "names", about.techNames);
  addText(server, "getAgentVersion", "version", about.version);
  server.add("getStatus", RPCServer::Access::everyone,
             [&about, &parts, logs](const RPCRequest&, RPCResponse& response) {
               response.result = statusTree(about, parts, logs->get(parts));
             });
}

void addLocalMethods(RPCServer& server, const AboutAgent& about, const LocalParts& parts) {
  const auto logs = std::make_shared<RecentLogs>();
  addStateMethods(server, about, parts, logs);
  addSettingsMethods(server, parts);
  addPolicyMethods(server, parts);
  addConnectionMethods(server, parts);
  addLogMethods(server, parts, logs);
  addDiagnosticsMethods(server, about, parts);
  addAppDataMethods(server, parts);
}

}  // namespace korvane
