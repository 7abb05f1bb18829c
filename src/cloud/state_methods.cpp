// getTechStatus, getTechNames, getAgentVersion and getStatus.
#include "cloud/agent_status.h"
#include "cloud/local_methods.h"

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

void addStateMethods(RPCServer& server, const AboutAgent& about) {
  addText(server, "getTechStatus", "status", about.techStatus);
  addText(server, "getTechNames", "names", about.techNames);
  addText(server, "getAgentVersion", "version", about.version);
  server.add(
      "getStatus", RPCServer::Access::everyone,
      [&about](const RPCRequest&, RPCResponse& response) { response.result = statusTree(about); });
}

void addLocalMethods(RPCServer& server, const AboutAgent& about) {
  addStateMethods(server, about);
  addSettingsMethods(server);
  addPolicyMethods(server);
  addLogMethods(server);
  addDiagnosticsMethods(server, about);
}

}  // namespace korvane
