// getLogPointers and getCounters.
#include "cloud/agent_status.h"
#include "cloud/local_methods.h"

namespace korvane {

void addLogMethods(RPCServer& server, const LocalParts& parts) {
  const auto add = [&](const char* name, JsonTree (*tree)(const LocalParts&)) {
    server.add(name, RPCServer::Access::everyone,
               [tree, &parts](const RPCRequest&, RPCResponse& response) {
                 response.result = tree(parts);
               });
  };
  add("getLogPointers", logsTree);
  add("getCounters", [](const LocalParts& of) { return countersTree(of.counters, of.server); });
}

}  // namespace korvane
