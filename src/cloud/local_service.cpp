#include "cloud/local_service.h"

#include "agent/thread/stop_token.h"
#include "cloud/local_methods.h"
#include "platform/platform.h"
#include "rpc/pipe_names.h"
#include "rpc/rpc_named_pipe.h"

namespace korvane {

LocalService::LocalService(AboutAgent about) : _about(std::move(about)) {}

void LocalService::run() {
  platform::Platform& system = platform::current();
  RPCNamedPipe transport(system.pipes, system.clock, kLocalPipe, RPCNamedPipe::Role::server);
  RPCServer server(transport, system.clock);
  addLocalMethods(server, _about);
  const StopCallback withTheAgent(shutdownToken(), [this] { stopToken().request(); });
  server.run(stopToken());
}

}  // namespace korvane
