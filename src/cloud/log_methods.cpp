// getCounters.
#include "cloud/agent_status.h"
#include "cloud/local_methods.h"

namespace korvane {

void addLogMethods(RPCServer& server) {
  server.add("getCounters", RPCServer::Access::everyone,
             [](const RPCRequest&, RPCResponse& response) { response.result = countersTree(); });
}

}  // namespace korvane
