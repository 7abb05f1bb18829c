#include "cloud/comm_thread.h"

#include "cloud/cloud_methods.h"
#include "platform/platform.h"
#include "rpc/pipe_names.h"
#include "rpc/rpc_named_pipe.h"
#include "update/policy/policy_processor.h"

namespace korvane {

CommThread::CommThread(AgentInfo*) {}

void CommThread::run() {
  PolicyProcessor::reportOutstanding();
  platform::Platform& system = platform::current();
  RPCNamedPipe transport(system.pipes, system.clock, kCloudPipe, RPCNamedPipe::Role::server,
                         platform::PipeAudience::administrators);
  RPCServer server(transport, system.clock);
  CloudMethods methods;
  methods.addTo(server);
  server.run(stopToken());
}

}  // namespace korvane
