// getLogPointers, getCounters and getLedger.
#include "cloud/agent_status.h"
#include "cloud/local_methods.h"
#include "cloud/recent_logs.h"

namespace korvane {

void addLogMethods(RPCServer& server, const LocalParts& parts,
                   const std::shared_ptr<RecentLogs>& logs) {
  using Access = RPCServer::Access;
  server.add("getLogPointers", Access::everyone,
             [&parts, logs](const RPCRequest&, RPCResponse& response) {
               response.result = logs->get(parts);
             });
  server.add("getCounters", Access::everyone, [&parts](const RPCRequest&, RPCResponse& response) {
    response.result = countersTree(parts.counters, parts.server);
  });
  server.add("getLedger", Access::everyone, [&parts](const RPCRequest&, RPCResponse& response) {
    response.result = ledgerTree(parts.ledger);
  });
}

}  // namespace korvane
