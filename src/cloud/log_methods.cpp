// getLogPointers and getCounters.
#include "cloud/agent_status.h"
#include "cloud/local_methods.h"

namespace korvane {

void addLogMethods(RPCServer& server) {
  const auto add = [&server](const char* name, JsonTree (*tree)()) {
    server.add(name, RPCServer::Access::everyone,
               [tree](const RPCRequest&, RPCResponse& response) { response.result = tree(); });
  };
  add("getLogPointers", logsTree);
  add("getCounters", countersTree);
}

}  // namespace korvane
