#include "cloud/comm_thread.h"

#include "rpc/pipe_names.h"
#include "rpc/rpc_named_pipe.h"
#include "update/policy/policy_processor.h"

namespace korvane {

CommThread::CommThread(AgentInfo*, const Parts& parts) : _parts(parts) {}

void CommThread::run() {
  PolicyProcessor(_parts.methods.policies).reportOutstanding();
  RPCNamedPipe transport(_parts.pipes, _parts.clock, kCloudPipe, RPCNamedPipe::Role::server,
                         platform::PipeAudience::administrators);
  RPCServer server(transport, _parts.clock);
  CloudMethods methods(_parts.methods);
  methods.addTo(server);
  server.run(stopToken());
}

}  // namespace korvane
